// What a power failure, or a writer that died at the wrong moment, leaves behind.
#include <gmock/gmock.h>

#include <random>

#include "statedb/fakes/StoreContract.h"
#include "statedb/sqlite/Connection.h"
#include "statedb/sqlite/fakes/TestFiles.h"

namespace statedb::sqlite {
namespace {

// A database with 20 commits in its write-ahead log, each of the same records, as it stood when the
// power went: without the index in shared memory.
class TornFilesTest : public SqliteTest {
 protected:
  static constexpr int commits = 20;

  TornFilesTest() {
    const auto store = open();
    for (int i = 0; i < commits; ++i) {
      const rt::String doc(std::to_string(i));
      store->commit(Transaction().put("vmConfig", "a", doc).put("vmConfig", "b", doc));
    }
    database = contentOf(file);
    log = contentOf(companion("-wal"));
    index = contentOf(companion("-shm"));
  }

  // Puts the files there and opens them. Returns the last whole commit; -1 for none.
  int opened(const std::string& itsLog, const std::string& itsIndex = "") {
    contentIs(file, database);
    contentIs(companion("-wal"), itsLog);
    if (itsIndex.empty())
      std::filesystem::remove(companion("-shm"));
    else
      contentIs(companion("-shm"), itsIndex);
    const auto store = open();
    const Snapshot snapshot = store->snapshot({"vmConfig"});
    Connection check(fileName(), rt::Seconds(1));
    EXPECT_EQ(check.text("PRAGMA integrity_check"), "ok");
    EXPECT_EQ(check.number("SELECT count(*) FROM change"), int64_t(snapshot.cursor.sequence));
    // It can be written to.
    put(*store, "new", "1");
    EXPECT_EQ(store->changes(snapshot.cursor).changes.size(), 1U);
    if (snapshot.records.empty()) return -1;
    EXPECT_EQ(snapshot.records.size(), 2U);
    EXPECT_EQ(snapshot.records[0].doc, snapshot.records[1].doc);
    return std::stoi(snapshot.records[0].doc.str());
  }

  std::string database;
  std::string log;
  std::string index;
};

TEST_F(TornFilesTest, AWholeLogWithoutItsIndexIsAllThere) { EXPECT_EQ(opened(log), commits - 1); }

TEST_F(TornFilesTest, ALogCutAnywhereLosesOnlyItsLastCommits) {
  std::mt19937 random(1);
  int before = commits;
  for (int i = 0; i <= 40; ++i) {
    const size_t length = log.size() * static_cast<size_t>(40 - i) / 40 + random() % 7;
    SCOPED_TRACE(length);
    const int last = opened(log.substr(0, length));
    EXPECT_LE(last, before);
    before = last;
  }
  EXPECT_EQ(before, -1);
}

TEST_F(TornFilesTest, ALogDamagedAnywhereEndsBeforeTheDamage) {
  std::mt19937 random(2);
  for (int i = 0; i < 40; ++i) {
    std::string damaged = log;
    const size_t place = random() % damaged.size();
    SCOPED_TRACE(place);
    damaged[place] = static_cast<char>(damaged[place] ^ 0x55);
    EXPECT_LT(opened(damaged), commits);
  }
}

TEST_F(TornFilesTest, AnIndexThatIsRubbishIsMadeAnew) {
  EXPECT_EQ(opened(log, std::string(index.size(), '\x5a')), commits - 1);
}

TEST_F(TornFilesTest, AnIndexCutShortIsMadeAnew) {
  EXPECT_EQ(opened(log, index.substr(0, 100)), commits - 1);
}

TEST_F(TornFilesTest, AnIndexOfAnotherMomentIsMadeAnew) {
  EXPECT_LT(opened(log.substr(0, log.size() / 2), index), commits - 1);
}

TEST_F(TornFilesTest, ALogThatIsRubbishIsNone) {
  EXPECT_EQ(opened(std::string(log.size(), '\x5a')), -1);
}

}  // namespace
}  // namespace statedb::sqlite
