#include "statedb/sqlite/SqliteDb.h"

#include <unistd.h>

#include "statedb/sqlite/SqliteStore.h"

namespace statedb::sqlite {

namespace {

StoreOptions configOptions(const DbOptions& options) {
  return {.file = options.stateDir + "/config.db",
          .half = Half::config,
          .isStatus = options.isStatus,
          .role = options.role,
          .author = options.author};
}

StoreOptions statusOptions(const DbOptions& options) {
  return {.file = options.runDir + "/status.db",
          .half = Half::status,
          .isStatus = options.isStatus,
          .role = options.role};
}

StateDb::Opener opener(const StoreOptions& options) {
  return [options] { return openStore(options); };
}

// Of configuration that was there before: nobody asked for an empty one in its place.
StateDb::Opener configOpener(const StoreOptions& options) {
  if (options.role != Role::owner) return opener(options);
  StoreOptions again = options;
  again.role = Role::reopener;
  return [first = opener(options), later = opener(again), wasOpened = false]() mutable {
    auto store = wasOpened ? later() : first();
    wasOpened = true;
    return store;
  };
}

// Status that is damaged is found out again: nothing of it is worth keeping a daemon from starting.
StateDb::Opener statusOpener(const StoreOptions& options) {
  if (options.role != Role::owner) return opener(options);
  return [file = options.file, open = opener(options)] {
    try {
      return open();
    } catch (const Error& error) {
      if (error.trouble() != Trouble::corrupt) throw;
    }
    for (const char* ending : {"", "-wal", "-shm"}) (void)unlink((file + ending).charPtr());
    return open();
  };
}

}  // namespace

StateDb openDb(const DbOptions& options) {
  StateDb db(configOpener(configOptions(options)), statusOpener(statusOptions(options)),
             options.isStatus);
  if (options.role == Role::owner) {
    db.store(Half::config);
    db.store(Half::status);
  }
  return db;
}

std::unique_ptr<Store> openStore(const StoreOptions& options) {
  return std::make_unique<SqliteStore>(options);
}

}  // namespace statedb::sqlite
