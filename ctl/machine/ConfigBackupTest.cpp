// The configuration as one file, on real databases.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "ctl/machine/ConfigBackup.h"
#include "runtime/base/fakes/TestFolder.h"
#include "statedb/sqlite/Schema.h"
#include "statedb/sqlite/SqliteDb.h"

namespace ctl {
namespace {

namespace fs = std::filesystem;
using rt::fakes::contentOf;
using statedb::sqlite::Connection;
using statedb::sqlite::formatSteps;
using statedb::sqlite::Role;
using testing::HasSubstr;

class ConfigBackup : public testing::Test {
 protected:
  std::unique_ptr<statedb::Store> store() const {
    return statedb::sqlite::openStore({.file = folder_ / "config.db", .role = Role::owner});
  }
  static void put(statedb::Store& store, const char* name, const char* doc) {
    store.commit(statedb::Transaction().put("vmConfig", name, doc));
  }
  void backUp(FilePlace::Standing standing = FilePlace::Standing::stays) const {
    backUpConfig(folder_.path(), {.path = backup_, .standing = standing});
  }
  statedb::Trouble troubleOf(const std::string& file) const {
    try {
      (void)readConfigBackup(file);
    } catch (const statedb::Error& error) {
      EXPECT_THAT(std::string(error.what()), HasSubstr(file)) << "names the file, and no copy";
      return error.trouble();
    }
    ADD_FAILURE() << "it is taken";
    return {};
  }
  // Of the first so many steps of the format.
  void makeOfFormat(std::span<const char* const> steps) const {
    std::ofstream(backup_).flush();
    Connection connection(backup_, rt::Seconds(1));
    statedb::sqlite::requireFormat(connection, Role::owner, steps);
  }

  const rt::fakes::TestFolder folder_;
  const std::string backup_ = folder_ / "backup.db";
};

TEST_F(ConfigBackup, HasAllThatIsCommittedAndNothingOfTheLogBesideIt) {
  const auto store = this->store();
  put(*store, "web1", R"({"memory":1})");
  put(*store, "web2", R"({"memory":2})");
  ASSERT_TRUE(fs::exists(folder_ / "config.db-wal"));
  backUp();
  EXPECT_FALSE(fs::exists(backup_ + "-wal"));
  EXPECT_EQ(rt::fakes::modeOf(backup_), 0600);
  const statedb::Snapshot backup = readConfigBackup(backup_);
  ASSERT_EQ(backup.records.size(), 2U);
  EXPECT_EQ(backup.records[1].doc, R"({"memory":2})");
  EXPECT_EQ(backup.cursor.history, store->snapshot({"vmConfig"}).cursor.history);
}

TEST_F(ConfigBackup, IsNotWrittenOverUnlessItIsToBe) {
  const auto store = this->store();
  put(*store, "web1", "{}");
  backUp();
  put(*store, "web2", "{}");
  EXPECT_THROW(backUp(), rt::Exception);
  EXPECT_EQ(readConfigBackup(backup_).records.size(), 1U);
  backUp(FilePlace::Standing::isReplaced);
  EXPECT_EQ(readConfigBackup(backup_).records.size(), 2U);
}

TEST_F(ConfigBackup, OfADatabaseThatIsDamagedOrLostIsNone) {
  EXPECT_THROW(backUp(), statedb::Error);
  std::ofstream(folder_ / "config.db") << std::string(5000, 'x');
  EXPECT_THROW(backUp(), statedb::Error);
  size_t files = 0;
  for (const auto& entry : fs::directory_iterator(folder_.path()))
    files += entry.path().filename().string().find("backup") != std::string::npos ? 1 : 0;
  EXPECT_EQ(files, 0U);
}

TEST_F(ConfigBackup, StaysAsItIsWhenItIsRead) {
  put(*store(), "web1", "{}");
  backUp();
  const std::string before = contentOf(backup_);
  EXPECT_EQ(readConfigBackup(backup_).records.size(), 1U);
  EXPECT_EQ(contentOf(backup_), before);
  EXPECT_FALSE(fs::exists(backup_ + "-wal"));
}

TEST_F(ConfigBackup, OfAnOlderFormatIsReadAndStaysOne) {
  makeOfFormat(formatSteps().first(2));
  Connection(backup_, rt::Seconds(1))
      .run(R"(INSERT INTO record(tbl, key, doc) VALUES('vmConfig', 'web1', '{}'))");
  const statedb::Snapshot backup = readConfigBackup(backup_);
  ASSERT_EQ(backup.records.size(), 1U);
  EXPECT_EQ(backup.records[0].key, "web1");
  EXPECT_EQ(Connection(backup_, rt::Seconds(1)).number("PRAGMA user_version"), 2);
}

TEST_F(ConfigBackup, OfANewerFormatIsRefused) {
  std::vector<const char*> steps(formatSteps().begin(), formatSteps().end());
  steps.push_back("CREATE TABLE extra(a INTEGER) STRICT");
  makeOfFormat(steps);
  EXPECT_EQ(troubleOf(backup_), statedb::Trouble::newer);
}

TEST_F(ConfigBackup, ThatIsSomethingElseIsRefused) {
  std::ofstream(backup_) << "no database";
  EXPECT_NE(troubleOf(backup_), statedb::Trouble::missing);
  std::ofstream(backup_, std::ios::trunc).flush();
  EXPECT_EQ(troubleOf(backup_), statedb::Trouble::missing);
  EXPECT_THROW((void)readConfigBackup(folder_ / "none"), rt::Exception);
}

// Of a database that was copied by hand while a daemon had it open.
TEST_F(ConfigBackup, ThatIsACopyMadeByHandHasTheNewestToo) {
  const auto store = this->store();
  put(*store, "web1", "{}");
  fs::copy_file(folder_ / "config.db", backup_);
  fs::copy_file(folder_ / "config.db-wal", backup_ + "-wal");
  EXPECT_EQ(readConfigBackup(backup_).records.size(), 1U);
}

}  // namespace
}  // namespace ctl
