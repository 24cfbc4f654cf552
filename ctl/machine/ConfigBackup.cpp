#include "ctl/machine/ConfigBackup.h"

#include <cerrno>
#include <fstream>
#include <vector>

#include "ctl/machine/TemporaryDirectory.h"
#include "model/Tables.h"
#include "runtime/base/Exception.h"
#include "statedb/sqlite/Backup.h"
#include "statedb/sqlite/SqliteDb.h"

namespace ctl {

namespace {

void copy(const rt::String& from, const rt::String& to) {
  std::ifstream in(from.str(), std::ios::binary);
  if (!in) throw rt::ErrnoException(errno, from + " cannot be read");
  std::ofstream out(to.str(), std::ios::binary);
  if (in.peek() != std::ifstream::traits_type::eof()) out << in.rdbuf();
  if (!out.flush()) throw rt::ErrnoException(errno, to + " cannot be written");
}

// A sentence on the copy, as one on the file itself.
rt::String ofFile(std::string sentence, const rt::String& copy, const rt::String& file) {
  for (size_t at = 0; (at = sentence.find(copy.str(), at)) != std::string::npos; at += file.size())
    sentence.replace(at, copy.size(), file.str());
  return sentence;
}

std::vector<rt::String> configTables() {
  std::vector<rt::String> names;
  for (const model::Table& table : model::tables)
    if (!table.isStatus) names.emplace_back(table.name);
  return names;
}

}  // namespace

void backUpConfig(const rt::String& stateDir, const FilePlace& place) {
  NewFile file(place);
  statedb::sqlite::backUp(stateDir + "/config.db", file.path());
  file.put();
}

statedb::Snapshot readConfigBackup(const rt::String& file) {
  const TemporaryDirectory directory;
  const rt::String place = directory.path() + "/config.db";
  copy(file, place);
  // Who copied a database by hand may have the newest of it there.
  if (std::ifstream(file.str() + "-wal")) copy(file + "-wal", place + "-wal");
  try {
    const auto store =
        statedb::sqlite::openStore({.file = place, .role = statedb::sqlite::Role::reopener});
    return store->snapshot(configTables());
  } catch (const statedb::Error& error) {
    throw statedb::Error(error.trouble(), ofFile(error.what(), place, file));
  }
}

}  // namespace ctl
