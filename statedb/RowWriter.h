// Writing rows that only we write: what is wanted there, and nothing else.
#pragma once

#include <map>
#include <set>
#include <utility>
#include <vector>

#include "statedb/StateDb.h"

namespace statedb {

// Holds what its tables are to contain, and writes what differs, all in one transaction. Rows that
// somebody else left or put there go at the first flush and whenever the store was opened anew.
class RowWriter {
 public:
  // Of one half.
  RowWriter(StateDb& db, std::vector<rt::String> tables);

  // To be written by the next flush, unless it is as it was. A row that is too long for the store
  // is none: one that cannot be written must not keep all others from being.
  void rowIs(const rt::String& table, const rt::String& key, const rt::String& doc);
  void rowDel(const rt::String& table, const rt::String& key);

  bool hasNews() const { return !compared_ || !news_.empty(); }
  // Does nothing when there is no news. Throws Error; the news is kept and goes with the next one.
  void flush();
  // The store is opened anew at the next flush, which writes all that differs there.
  void reopen();

 private:
  using Name = std::pair<rt::String, rt::String>;

  void compare();

  StateDb& db_;
  const std::vector<rt::String> tables_;
  const Half half_;
  bool compared_ = false;  // with what was in the store when it was opened
  std::map<Name, rt::String> rows_;
  std::set<Name> news_;
};

}  // namespace statedb
