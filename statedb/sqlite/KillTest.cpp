// Writers that are killed, and writers that never ring.
#include <gmock/gmock.h>

#include <chrono>
#include <random>

#include "statedb/fakes/StoreContract.h"
#include "statedb/sqlite/Connection.h"
#include "statedb/sqlite/fakes/TestFiles.h"
#include "statedb/sqlite/fakes/Writer.h"

namespace statedb::sqlite {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Lets `time` pass: when a child is killed is what varies here, and nothing is waited for.
void pass(std::chrono::microseconds time) {
  const timespec span{0, time.count() * 1000};
  ppoll(nullptr, 0, &span, nullptr);
}

class KillTest : public SqliteTest {
 protected:
  const std::unique_ptr<Store> store = open();
  const Closing wakeUp{store->wakeUp()};
  Cursor cursor = store->snapshot({}).cursor;
  Contents contents;

  Changes look() {
    Changes changes = store->changes(cursor);
    if (changes.resume == Resume::trimmed) {
      const Snapshot snapshot = store->snapshot({"vmConfig", "history"});
      contents = contentsOf(snapshot);
      cursor = snapshot.cursor;
    } else {
      replay(changes, contents);
      cursor = changes.cursor;
    }
    return changes;
  }
};

// Afterwards the log of changes reaches without a gap from where it was trimmed to its end.
TEST_F(KillTest, FiveHundredKillsLoseNothingCommittedAndLeaveNothingHalf) {
  std::mt19937 random(20240229);
  int unheard = 0;
  for (int i = 0; i < 500; ++i) {
    SCOPED_TRACE(i);
    Writer writer("commit", fileName());
    std::optional<uint64_t> said = writer.heard();
    ASSERT_TRUE(said);
    look();
    pass(std::chrono::microseconds(random() % 4000));
    writer.kill();
    while (const auto next = writer.heard()) said = next;
    const bool woken = wakeUp.isReadable();
    const Changes changes = look();
    // Whatever it had committed when it died wakes, also what it had no time to ring for.
    if (changes.resume == Resume::trimmed || !changes.changes.empty()) {
      ASSERT_TRUE(woken);
    }
    // All that it said it had committed is there, and at most the one it had no time to tell of.
    const uint64_t stored = std::stoull(contents.at("vmConfig/r0"));
    ASSERT_GE(stored, *said);
    ASSERT_LE(stored, *said + 1);
    unheard += stored == *said ? 0 : 1;
    for (int record = 0; record < 20; ++record)
      ASSERT_EQ(contents.at("vmConfig/r" + std::to_string(record)), std::to_string(stored));
  }
  RecordProperty("killedBetweenCommitAndWord", unheard);
  EXPECT_EQ(contents, contentsOf(store->snapshot({"vmConfig", "history"})));
  Connection check(fileName(), rt::Seconds(5));
  EXPECT_EQ(check.text("PRAGMA integrity_check"), "ok");
  EXPECT_EQ(check.number("SELECT max(seq) - min(seq) + 1 - count(*) FROM change"), 0);
  EXPECT_EQ(check.number("SELECT min(seq) - 1 FROM change"),
            check.number("SELECT v FROM meta WHERE k = 'trimmed_to'"));
}

// Nobody else has the file open: what is killed leaves its files for the next to recover.
TEST_F(KillTest, AFileWhoseOnlyUserIsKilledRecovers) {
  const auto lonely = dir / "lonely.db";
  StoreOptions options;
  options.file = rt::String(lonely.string());
  options.role = Role::owner;
  openStore(options);
  std::mt19937 random(7);
  uint64_t atLeast = 0;
  for (int i = 0; i < 40; ++i) {
    SCOPED_TRACE(i);
    Writer writer("commit", options.file);
    ASSERT_TRUE(writer.heard());
    pass(std::chrono::microseconds(random() % 4000));
    writer.kill();
    while (const auto next = writer.heard()) atLeast = *next;
    const auto opened = openStore(options);
    const uint64_t stored = std::stoull(opened->record("vmConfig", "r0")->doc.str());
    ASSERT_GE(stored, atLeast);
    for (const Record& record : opened->snapshot({"vmConfig"}).records)
      ASSERT_EQ(record.doc, std::to_string(stored));
  }
}

TEST_F(KillTest, ACommitWhoseWriterIsKilledBeforeItRingsIsSeen) {
  Writer writer("silent", fileName());
  ASSERT_TRUE(writer.heard());
  EXPECT_FALSE(wakeUp.isReadable());
  writer.kill();
  EXPECT_TRUE(wakeUp.isReadable());
  EXPECT_THAT(told(look()), ElementsAre("put silent"));
}

TEST_F(KillTest, ALockDiesWithItsHolder) {
  Writer holder("lock", fileName());
  ASSERT_TRUE(holder.heard());
  holder.kill();
  put(*store, "a", "1");
  EXPECT_EQ(store->record("vmConfig", "a")->doc, "1");
}

class ForeignWriterTest : public KillTest {
 protected:
  // As another SQLite program does: it knows no bell.
  void run(const char* sql) const { Connection(fileName(), rt::Seconds(5)).run(sql); }
  Trouble refused(const char* sql) const {
    return troubleOf([&] { run(sql); });
  }
};

TEST_F(ForeignWriterTest, IsHeardWhenItClosesTheFile) {
  {
    Connection foreign(fileName(), rt::Seconds(5));
    foreign.run("INSERT INTO record(tbl, key, doc) VALUES('vmConfig', 'a', '1')");
  }
  EXPECT_TRUE(wakeUp.isReadable());
  EXPECT_THAT(told(look()), ElementsAre("put a"));
}

TEST_F(ForeignWriterTest, GivesRecordsRevisionsLikeAnybody) {
  run("INSERT INTO record(tbl, key, doc, rev) VALUES('vmConfig', 'a', '1', 99)");
  const uint64_t first = store->record("vmConfig", "a")->revision;
  run("UPDATE record SET doc = '2' WHERE key = 'a'");
  const uint64_t second = store->record("vmConfig", "a")->revision;
  EXPECT_NE(first, 99U);
  EXPECT_NE(first, second);
  store->commit(Transaction().guard("vmConfig", "a", second).put("vmConfig", "a", "3"));
}

TEST_F(ForeignWriterTest, ChangesManyRecordsAtOnce) {
  run("INSERT INTO record(tbl, key, doc) VALUES('vmConfig', 'a', '1'), ('vmConfig', 'b', '2'),"
      " ('vmConfig', 'c', '3')");
  look();
  run("UPDATE record SET doc = '2'");
  EXPECT_THAT(told(look()), ElementsAre("put a", "put c"));
  run("DELETE FROM record WHERE key < 'c'");
  EXPECT_THAT(told(look()), testing::UnorderedElementsAre("del a", "del b"));
}

TEST_F(ForeignWriterTest, RenamesARecord) {
  run("INSERT INTO record(tbl, key, doc) VALUES('vmConfig', 'a', '1')");
  look();
  run("UPDATE record SET key = 'b', doc = '2'");
  EXPECT_THAT(told(look()), ElementsAre("del a", "put b"));
  EXPECT_EQ(contents, (Contents{{"vmConfig/b", "2"}}));
}

TEST_F(ForeignWriterTest, ReplacesARecord) {
  run("INSERT INTO record(tbl, key, doc) VALUES('vmConfig', 'a', '1')");
  look();
  run("INSERT OR REPLACE INTO record(tbl, key, doc) VALUES('vmConfig', 'a', '2')");
  EXPECT_THAT(told(look()), ElementsAre("put a"));
  EXPECT_EQ(contents, (Contents{{"vmConfig/a", "2"}}));
}

TEST_F(ForeignWriterTest, CannotWriteWhatIsNoRecord) {
  EXPECT_EQ(refused("INSERT INTO record(tbl, key, doc) VALUES('vmConfig', 'a', '{')"),
            Trouble::invalid);
  EXPECT_EQ(refused("INSERT INTO record(tbl, key, doc) VALUES('vmConfig', '', '{}')"),
            Trouble::invalid);
  EXPECT_EQ(refused("INSERT INTO record(tbl, key, doc) VALUES('vmConfig', 'a' || char(0), '{}')"),
            Trouble::invalid);
  EXPECT_EQ(refused("INSERT INTO record(tbl, key, doc) VALUES('vmConfig', NULL, '{}')"),
            Trouble::invalid);
  EXPECT_EQ(refused("INSERT INTO record(tbl, key, doc) VALUES('vmConfig', x'00', '{}')"),
            Trouble::invalid);
  EXPECT_THAT(told(look()), IsEmpty());
}

}  // namespace
}  // namespace statedb::sqlite
