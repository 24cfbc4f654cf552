#include "statedb/sqlite/SqliteDb.h"

#include <unistd.h>

#include "statedb/sqlite/SqliteStore.h"

namespace statedb::sqlite {

namespace {

StateDb::Opener opener(const rt::String& file, Half half, Role role) {
  StoreOptions options;
  options.file = file;
  options.half = half;
  options.role = role;
  return [options] { return openStore(options); };
}

// Of configuration that was there before: nobody asked for an empty one in its place.
StateDb::Opener configOpener(const rt::String& file, Role role) {
  if (role != Role::owner) return opener(file, Half::config, role);
  return [first = opener(file, Half::config, Role::owner),
          later = opener(file, Half::config, Role::reopener), wasOpened = false]() mutable {
    auto store = wasOpened ? later() : first();
    wasOpened = true;
    return store;
  };
}

// Status that is damaged is found out again: nothing of it is worth keeping a daemon from starting.
StateDb::Opener statusOpener(const rt::String& file, Role role) {
  if (role != Role::owner) return opener(file, Half::status, role);
  return [file, open = opener(file, Half::status, Role::owner)] {
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
  StateDb db(configOpener(options.stateDir + "/config.db", options.role),
             statusOpener(options.runDir + "/status.db", options.role));
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
