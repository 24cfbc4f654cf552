// Directories and files of tests.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "runtime/base/fakes/TestFolder.h"
#include "statedb/sqlite/SqliteDb.h"

namespace statedb::sqlite {

inline mode_t modeOf(const std::filesystem::path& file) {
  struct stat found {};
  EXPECT_EQ(stat(file.c_str(), &found), 0) << file;
  return found.st_mode & 07777;
}
inline gid_t groupOf(const std::filesystem::path& file) {
  struct stat found {};
  EXPECT_EQ(stat(file.c_str(), &found), 0) << file;
  return found.st_gid;
}
inline std::string contentOf(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}
inline void contentIs(const std::filesystem::path& file, const std::string& content) {
  std::ofstream(file, std::ios::binary | std::ios::trunc) << content;
}

// A test with a configuration store's file, which does not exist at first.
class SqliteTest : public testing::Test {
 protected:
  std::unique_ptr<Store> open(Role role = Role::owner, int64_t keptChanges = 10'000) const {
    StoreOptions options;
    options.file = rt::String(file.string());
    options.role = role;
    options.keptChanges = keptChanges;
    return openStore(options);
  }
  std::unique_ptr<Store> openClient() const { return open(Role::client); }
  static void put(Store& store, const rt::String& key, const rt::String& doc) {
    store.commit(Transaction().put("vmConfig", key, doc));
  }
  rt::String fileName() const { return rt::String(file.string()); }
  // The file beside the database that ends so.
  std::filesystem::path companion(const char* ending) const { return file.string() + ending; }

  const rt::fakes::TestFolder folder;
  const std::filesystem::path dir = folder.path();
  const std::filesystem::path file = dir / "config.db";
};

}  // namespace statedb::sqlite
