#include "statedb/sqlite/Backup.h"

#include "statedb/sqlite/Connection.h"
#include "statedb/sqlite/Schema.h"
#include "statedb/sqlite/StoreFile.h"

namespace statedb::sqlite {

namespace {

constexpr rt::Seconds patience(5);

}  // namespace

void backUp(const rt::String& file, const rt::String& to) {
  requireFile(file, Role::client);
  Connection connection(file, patience);
  requireFormat(connection, Role::client);
  connection.query("VACUUM INTO ?1").with(std::string_view(to)).run();
}

}  // namespace statedb::sqlite
