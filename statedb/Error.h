// What goes wrong with the state database.
#pragma once

#include <cstdint>

#include "runtime/base/Exception.h"

namespace statedb {

enum class Trouble : uint8_t {
  missing,   // no such file or directory, or not set up yet
  locked,    // another process kept the database for longer than we wait
  corrupt,   // damaged, or no database at all
  replaced,  // another file stands in its place since it was opened
  newer,     // written by a newer version of the program
  older,     // an older version's, and it is not ours to migrate
  foreign,   // another program's database
  full,      // no space left
  readOnly,  // on a file system that is mounted read-only
  denied,    // no permission
  conflict,  // a guard did not hold
  invalid,   // a request that no state of the database could make right
  failed,    // anything else
};

// The failed call changed nothing. what() is a sentence that names the file, or the record, and the
// way out.
class Error : public rt::Exception {
 public:
  Error(Trouble trouble, rt::String sentence) : Exception(std::move(sentence)), trouble_(trouble) {}
  Trouble trouble() const { return trouble_; }

 private:
  Trouble trouble_;
};

// A transaction was refused because a record is not as its guard says.
class ConflictError final : public Error {
 public:
  ConflictError(rt::String table, rt::String key, rt::String sentence)
      : Error(Trouble::conflict, std::move(sentence)),
        table_(std::move(table)),
        key_(std::move(key)) {}
  const rt::String& table() const { return table_; }
  const rt::String& key() const { return key_; }

 private:
  rt::String table_;
  rt::String key_;
};

}  // namespace statedb
