// Following some tables of the state database without a gap.
#pragma once

#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "statedb/StateDb.h"

namespace statedb {

// Knows what its owner was told, and tells what is different now: also where the store's log was
// trimmed, or the store was replaced. Keeps no documents.
class Follower {
 public:
  // Of one half.
  Follower(StateDb& db, std::vector<rt::String> tables);

  // A descriptor to poll, the caller's to close; readable: catchUp() may have news. Of the store as
  // it is open now.
  int wakeUp();
  // What changed since the last time, at first everything there is; each record once. Of a record
  // that was removed and made anew, the new one (its `created` tells). Throws Error, and tells the
  // same the next time.
  std::vector<Change> catchUp();
  // The moment that the last catchUp() told of; none before the first.
  const std::optional<Cursor>& cursor() const { return cursor_; }
  // The store is opened anew at the next call; for one that says it was replaced. The descriptor of
  // wakeUp() is of no use any more.
  void reopen();

 private:
  using Name = std::pair<rt::String, rt::String>;

  std::vector<Change> compare();
  bool take(const Change& change);

  StateDb& db_;
  const std::vector<rt::String> tables_;
  const Half half_;
  std::optional<Cursor> cursor_;
  std::map<Name, uint64_t> revisions_;
};

}  // namespace statedb
