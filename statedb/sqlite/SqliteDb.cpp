#include "statedb/sqlite/SqliteDb.h"

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

}  // namespace

StateDb openDb(const DbOptions& options) {
  StateDb db(opener(options.stateDir + "/config.db", Half::config, options.role),
             opener(options.runDir + "/status.db", Half::status, options.role));
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
