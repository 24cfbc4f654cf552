// The state database in two SQLite files, which every program of the machine opens for itself.
//
//   config.db in the state directory: durable, each commit is on the disk when it returns
//   status.db in the run directory: in memory as far as that is, never synced
//
// Beside each stand SQLite's -wal and -shm and our -bell, which is opened for writing and closed
// after each commit: that wakes the watchers. All have the mode and group of the database file;
// for a group of users the directory should be setgid. Any SQLite program may write too: its
// commits are logged alike, and seen at the latest when it closes the file, or is killed.
#pragma once

#include <memory>
#include <optional>

#include "runtime/base/Seconds.h"
#include "statedb/StateDb.h"

namespace statedb::sqlite {

enum class Role : uint8_t {
  owner,  // the daemon: makes the files if missing (mode 0660), converts those of an older format
  reopener,  // the same while it runs: one that is missing or empty was lost, and is not made
  client,    // all others: read and write what is there
};

struct DbOptions {
  rt::String stateDir;
  rt::String runDir;
  IsStatus isStatus = nullptr;
  Role role = Role::client;
  Author author{};  // of what is written, as far as it is configuration; its time is the store's
};

// Of the files. An older one is converted by the owner, a newer one refused by all. A file has its
// own in its bytes 60 to 63, the highest first, once its owner has opened it.
size_t newestFormat();

// The owner opens both halves at once, so that its trouble is told now, and makes no configuration
// later; a client opens each when it needs it: after a reboot there is configuration, but no status
// until the daemon has run.
StateDb openDb(const DbOptions& options);

struct StoreOptions {
  rt::String file;
  Half half = Half::config;
  IsStatus isStatus = nullptr;  // null: it takes tables of any half
  Role role = Role::client;
  // How long to wait for others' locks. By default a client waits 5 s; the daemon 0.05 s, because
  // its handlers stand still meanwhile, and it can try again later.
  std::optional<rt::Seconds> patience{};
  // Changes kept in the log when it is trimmed, which happens once it holds a quarter more.
  int64_t keptChanges = 10'000;
  Author author{};
};

// One half by itself.
std::unique_ptr<Store> openStore(const StoreOptions& options);

}  // namespace statedb::sqlite
