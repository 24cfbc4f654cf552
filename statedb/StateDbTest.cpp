// Both halves together: which table is where, and when a half is opened.
#include <gmock/gmock.h>

#include <fstream>

#include "runtime/base/fakes/TestFolder.h"
#include "runtime/fakes/LoopFixture.h"
#include "statedb/StateDb.h"
#include "statedb/fakes/MemoryStore.h"
#include "statedb/fakes/StatusTables.h"
#include "statedb/fakes/StoreContract.h"
#include "statedb/sqlite/SqliteDb.h"
#include "statedb/sqlite/fakes/TestFiles.h"

namespace statedb {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class StateDbTest : public testing::Test {
 protected:
  std::unique_ptr<Store> openHalf(Half half) {
    opened.push_back(half);
    return std::make_unique<fakes::MemoryStore>(data[static_cast<size_t>(half)], half,
                                                fakes::isStatus);
  }

  std::vector<Half> opened;
  std::shared_ptr<fakes::MemoryData> data[2] = {std::make_shared<fakes::MemoryData>(),
                                                std::make_shared<fakes::MemoryData>()};
  StateDb db{[this] { return openHalf(Half::config); }, [this] { return openHalf(Half::status); },
             fakes::isStatus};
};

TEST_F(StateDbTest, StatusIsWhatItWasToldIsStatusAndAllElseIsConfiguration) {
  EXPECT_EQ(db.halfOf("vmStatus"), Half::status);
  EXPECT_EQ(db.halfOf("fdb"), Half::status);
  for (const char* table : {"vmConfig", "", "anything", "vmstatus"})
    EXPECT_EQ(db.halfOf(table), Half::config) << table;
}

TEST_F(StateDbTest, RequestsGoToTheirTablesHalf) {
  db.commit(Transaction().put("vmConfig", "a", "1"));
  db.commit(Transaction().put("vmStatus", "a", "2"));
  EXPECT_EQ(data[0]->records.size(), 1U);
  EXPECT_EQ(data[1]->records.size(), 1U);
  EXPECT_EQ(db.record("vmConfig", "a")->doc, "1");
  EXPECT_EQ(db.record("vmStatus", "a")->doc, "2");
  EXPECT_EQ(db.snapshot({"vmConfig", "interface"}).cursor.storeId, data[0]->id);
  EXPECT_EQ(db.snapshot({"vmStatus", "fdb"}).cursor.storeId, data[1]->id);
  EXPECT_EQ(db.store("fdb").snapshot({}).cursor.storeId, data[1]->id);
}

TEST_F(StateDbTest, NoRequestSpansBothHalves) {
  std::string sentence;
  EXPECT_EQ(troubleOf(
                [&] {
                  (void)db.snapshot({"vmConfig", "vmStatus"});
                },
                &sentence),
            Trouble::invalid);
  EXPECT_THAT(sentence, HasSubstr("'vmConfig' and 'vmStatus' are of different stores"));
  EXPECT_EQ(troubleOf([&] {
              db.commit(Transaction().guard("vmConfig", "a", 0).put("vmStatus", "a", "1"));
            }),
            Trouble::invalid);
  EXPECT_THAT(data[1]->records, IsEmpty());
}

TEST_F(StateDbTest, AnEmptyTransactionGoesNowhere) {
  db.commit({});
  EXPECT_THAT(opened, IsEmpty());
}

TEST_F(StateDbTest, AHalfIsOpenedOnceWhenFirstAskedFor) {
  EXPECT_THAT(opened, IsEmpty());
  db.commit(Transaction().put("vmConfig", "a", "1"));
  db.commit(Transaction().put("vmConfig", "a", "2"));
  EXPECT_THAT(opened, ElementsAre(Half::config));
  db.store(Half::status);
  EXPECT_THAT(opened, ElementsAre(Half::config, Half::status));
}

class SqliteDbTest : public testing::Test {
 protected:
  StateDb open(sqlite::Role role) const {
    return sqlite::openDb(
        {rt::String(dir / "state"), rt::String(dir / "run"), fakes::isStatus, role});
  }
  SqliteDbTest() {
    std::filesystem::create_directory(dir / "state");
    std::filesystem::create_directory(dir / "run");
  }

  const rt::fakes::TestFolder dir;
};

TEST_F(SqliteDbTest, TheOwnerMakesBothFilesAtOnce) {
  StateDb db = open(sqlite::Role::owner);
  EXPECT_TRUE(std::filesystem::exists(dir / "state/config.db"));
  EXPECT_TRUE(std::filesystem::exists(dir / "run/status.db"));
}

TEST_F(SqliteDbTest, TheOwnerMakesNoConfigurationInThePlaceOfWhatItHadAndReadsWhatIsPutBack) {
  StateDb db = open(sqlite::Role::owner);
  db.commit(Transaction().put("vmConfig", "a", "1"));
  const auto file = dir / "state/config.db";
  std::filesystem::rename(file, dir / "away");
  db.close(Half::config);
  EXPECT_EQ(troubleOf([&] { db.store(Half::config); }), Trouble::missing);
  EXPECT_FALSE(std::filesystem::exists(file));
  std::filesystem::rename(dir / "away", file);
  EXPECT_EQ(db.record("vmConfig", "a")->doc, "1");
  // Status is made anew: it holds nothing that cannot be found out again.
  std::filesystem::remove(dir / "run/status.db");
  db.close(Half::status);
  EXPECT_THAT(db.snapshot({"vmStatus"}).records, IsEmpty());
}

TEST_F(SqliteDbTest, TheOwnerMakesStatusThatIsDamagedAnewAndTouchesNoSuchConfiguration) {
  const auto text = std::string(4096, 'x');
  std::ofstream(dir / "run/status.db") << text;
  {
    StateDb db = open(sqlite::Role::owner);
    EXPECT_THAT(db.snapshot({"vmStatus"}).records, IsEmpty());
  }
  std::ofstream(dir / "run/status.db") << text;
  EXPECT_EQ(troubleOf([&] { (void)open(sqlite::Role::client).snapshot({"vmStatus"}); }),
            Trouble::corrupt);
  std::ofstream(dir / "state/config.db") << text;
  EXPECT_EQ(troubleOf([&] { open(sqlite::Role::owner); }), Trouble::corrupt);
  EXPECT_EQ(std::filesystem::file_size(dir / "state/config.db"), text.size());
}

TEST_F(SqliteDbTest, ConfigurationCanBeWrittenWhileThereIsNoStatus) {
  open(sqlite::Role::owner);
  std::filesystem::remove(dir / "run/status.db");
  StateDb client = open(sqlite::Role::client);
  client.commit(Transaction().put("vmConfig", "a", "{}"));
  EXPECT_EQ(troubleOf([&] { (void)client.snapshot({"vmStatus"}); }), Trouble::missing);
  StateDb daemon = open(sqlite::Role::owner);
  EXPECT_THAT(client.snapshot({"vmStatus"}).records, IsEmpty());
  EXPECT_EQ(daemon.record("vmConfig", "a")->doc, "{}");
}

TEST_F(SqliteDbTest, TheHalvesAreDifferentStores) {
  StateDb db = open(sqlite::Role::owner);
  EXPECT_NE(db.store(Half::config).snapshot({}).cursor.storeId,
            db.store(Half::status).snapshot({}).cursor.storeId);
}

class WatchedDbTest : public rt::fakes::LoopTest {};

TEST_F(WatchedDbTest, TheLoopTellsOfACommitOnce) {
  const rt::fakes::TestFolder dir;
  const rt::String path(dir.path());
  StateDb db = sqlite::openDb({path, path, fakes::isStatus, sqlite::Role::owner});
  Store& store = db.store("vmConfig");
  const auto watcher = reader("watcher", store.wakeUp());
  Cursor cursor = db.snapshot({"vmConfig"}).cursor;
  std::vector<std::string> heard;
  watcher->onReadable = [&] {
    const Changes changes = store.changes(cursor);
    heard = told(changes);
    cursor = changes.cursor;
  };
  turn();
  EXPECT_THAT(take(), IsEmpty());
  sqlite::openDb({path, path, fakes::isStatus, sqlite::Role::client})
      .commit(Transaction().put("vmConfig", "a", "1"));
  turn();
  EXPECT_THAT(take(), ElementsAre("watcher readable"));
  EXPECT_THAT(heard, ElementsAre("put a"));
  turn();
  EXPECT_THAT(take(), IsEmpty());
}

}  // namespace
}  // namespace statedb
