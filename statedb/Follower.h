// Following some tables of the state database without a gap.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "statedb/StateDb.h"

namespace statedb {

// Knows what its owner was told, and tells what is different now: also where the store's log was
// trimmed, or the store was replaced. Keeps no documents.
//
//   a record                           | is told as
//   -----------------------------------+--------------------------------------------------------
//   that the store's history changed   | put, by history
//   that it removed                    | del, by history
//   that it removed and made anew      | put, by history, with another `created`
//   of a store that took the place of  | put, by comparison: the same record as was told, though
//     the one before                   |   its `created` be another; del, by history, goes before
//                                      |   where that was removed
//   that such a store does not have    | del, by comparison, once; later any of these
class Follower {
 public:
  // Of one half.
  Follower(StateDb& db, std::vector<rt::String> tables);

  // A descriptor to poll, the caller's to close; readable: catchUp() may have news. Of the store as
  // it is open now.
  int wakeUp();
  // What changed since the last time, at first everything there is, by comparison with nothing;
  // each record once. Throws Error, and tells the same the next time.
  std::vector<Change> catchUp();
  // The moment that the last catchUp() told of; none before the first.
  const std::optional<Cursor>& cursor() const { return cursor_; }
  // The store is opened anew at the next call; for one that says it was replaced. The descriptor of
  // wakeUp() is of no use any more.
  void reopen();

 private:
  using Name = std::pair<rt::String, rt::String>;
  struct Known {
    uint64_t revision = 0;
    uint64_t created = 0;
  };

  using Names = std::set<Name>;

  std::vector<Change> follow(std::vector<Change> changes);
  std::vector<Change> compare(Resume resume);
  Names removed(const Snapshot& now, Resume resume);
  void takeGone(const Snapshot& now, const Names& removed, std::vector<Change>& news);
  bool take(const Change& change);
  bool isFollowed(const rt::String& table) const;

  StateDb& db_;
  const std::vector<rt::String> tables_;
  const Half half_;
  std::optional<Cursor> cursor_;
  std::map<Name, Known> known_;  // told as put
  std::map<Name, Origin> lost_;  // told as removed, by comparison
};

}  // namespace statedb
