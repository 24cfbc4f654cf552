// A program of its own that writes to a store, to be killed, or to stand in others' way.
//
//   commit FILE  commits for ever; after each commit, its number as 8 bytes on standard output
//   silent FILE  commits one record without ringing, says so by 8 bytes, and waits for its end
//   lock FILE    takes the lock, says so by 8 bytes, and waits for its end
#include <unistd.h>

#include <cstdint>
#include <iostream>
#include <string>

#include "statedb/sqlite/Connection.h"
#include "statedb/sqlite/SqliteDb.h"

namespace statedb::sqlite {
namespace {

void say(uint64_t number) {
  if (write(STDOUT_FILENO, &number, sizeof number) != sizeof number) _exit(1);
}

[[noreturn]] void waitForEnd() {
  char byte = 0;
  while (read(STDIN_FILENO, &byte, 1) > 0) continue;
  _exit(0);
}

// Every transaction writes its number into the same records, 1 to 20 of them at a time being new.
[[noreturn]] void commitForEver(const char* file) {
  StoreOptions options;
  options.file = file;
  options.keptChanges = 1000;
  const auto store = openStore(options);
  const auto last = store->record("vmConfig", "r0");
  for (uint64_t n = last ? std::stoull(last->doc.str()) + 1 : 1;; ++n) {
    Transaction transaction;
    const rt::String doc(std::to_string(n));
    for (int i = 0; i < 20; ++i)
      transaction.put("vmConfig", rt::String("r" + std::to_string(i)), doc);
    transaction.put("history", rt::String(std::to_string(n % 50)), doc);
    if (n % 3 == 0) transaction.del("history", rt::String(std::to_string((n + 25) % 50)));
    store->commit(transaction);
    say(n);
  }
}

int act(const std::string& what, const char* file) {
  if (what == "commit") commitForEver(file);
  Connection connection(file, rt::Seconds(5));
  if (what == "silent") {
    connection.run("INSERT INTO record(tbl, key, doc) VALUES('vmConfig', 'silent', '{}')");
  } else {
    connection.run("BEGIN IMMEDIATE");
  }
  say(0);
  waitForEnd();
}

}  // namespace
}  // namespace statedb::sqlite

int main(int count, char** words) {
  if (count != 3) return 2;
  try {
    return statedb::sqlite::act(words[1], words[2]);
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
  }
}
