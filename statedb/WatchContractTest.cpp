// The contract of a store: what a watcher is told, and many users at once.
#include <atomic>
#include <thread>

#include "statedb/fakes/StoreContract.h"

namespace statedb {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Joins when it ends, also after a failed assertion.
class Thread {
 public:
  template <class Work>
  explicit Thread(Work work) : thread_(std::move(work)) {}
  Thread(const Thread&) = delete;
  ~Thread() { thread_.join(); }

 private:
  std::thread thread_;
};

TEST_P(StoreContract, WhatHappensAfterASnapshotIsTold) {
  put("a", "1");
  put("b", "1");
  const Cursor before = all().cursor;
  put("a", "2");
  del("b");
  const Changes changes = store->changes(before);
  EXPECT_EQ(changes.resume, Resume::resumed);
  ASSERT_EQ(changes.changes.size(), 2U);
  EXPECT_EQ(changes.changes[0], (Change{Op::put, *store->record(table, "a")}));
  EXPECT_EQ(changes.changes[1], (Change{Op::del, {table, "b", "", 0}}));
  EXPECT_EQ(changes.cursor, all().cursor);
}

TEST_P(StoreContract, NothingIsToldTwice) {
  const Cursor before = all().cursor;
  put("a", "1");
  const Changes first = store->changes(before);
  EXPECT_THAT(told(first), ElementsAre("put a"));
  EXPECT_THAT(told(store->changes(first.cursor)), IsEmpty());
  EXPECT_EQ(store->changes(first.cursor).cursor, first.cursor);
}

TEST_P(StoreContract, AnyCursorResumesWithoutAGapForAnyUser) {
  std::vector<std::pair<Cursor, Contents>> moments;
  for (int i = 0; i < 30; ++i) {
    moments.emplace_back(all().cursor, contentsOf(all()));
    const rt::String key = rt::String(std::to_string(i % 7));
    if (i % 5 == 4)
      store->commit(Transaction().del(table, key).put(other, key, "0"));
    else
      store->commit(Transaction().put(table, key, rt::String(std::to_string(i))));
  }
  const auto later = open();
  for (auto& [cursor, contents] : moments) {
    const Changes changes = later->changes(cursor);
    EXPECT_EQ(changes.resume, Resume::resumed);
    replay(changes, contents);
    EXPECT_EQ(contents, contentsOf(all()));
    EXPECT_EQ(changes.cursor, all().cursor);
  }
}

TEST_P(StoreContract, EachRecordIsToldOnceInOrderOfItsLastChange) {
  const Cursor before = all().cursor;
  put("a", "1");
  put("b", "1");
  put("c", "1");
  put("a", "2");
  const Changes changes = store->changes(before);
  EXPECT_THAT(told(changes), ElementsAre("put b", "put c", "put a"));
  EXPECT_EQ(changes.changes[2].record.doc, "2");
}

TEST_P(StoreContract, ARecordThatCameAndWentIsToldAsRemoved) {
  const Cursor before = all().cursor;
  put("a", "1");
  del("a");
  EXPECT_THAT(told(store->changes(before)), ElementsAre("del a"));
}

TEST_P(StoreContract, ARecordRemovedAndMadeAnewIsToldAsPut) {
  put("a", "1");
  const Cursor before = all().cursor;
  del("a");
  put("a", "2");
  EXPECT_THAT(told(store->changes(before)), ElementsAre("put a"));
}

TEST_P(StoreContract, AnUnchangedPutTellsNothingAndWakesNobody) {
  put("a", R"({"n":1})");
  const Snapshot before = all();
  const Closing wakeUp(store->wakeUp());
  put("a", R"({"n":1})");
  EXPECT_FALSE(wakeUp.isReadable());
  EXPECT_EQ(all().records, before.records);
  EXPECT_EQ(all().cursor, before.cursor);
  EXPECT_THAT(told(store->changes(before.cursor)), IsEmpty());
}

TEST_P(StoreContract, RemovingWhatDoesNotExistTellsNothing) {
  const Cursor before = all().cursor;
  del("a");
  EXPECT_EQ(all().cursor, before);
  EXPECT_THAT(told(store->changes(before)), IsEmpty());
}

TEST_P(StoreContract, ATrimmedCursorIsRefusedAndASnapshotGoesOn) {
  put("a", "1");
  const Cursor before = all().cursor;
  backend->trim(*store);
  const Changes changes = store->changes(before);
  EXPECT_EQ(changes.resume, Resume::trimmed);
  EXPECT_THAT(changes.changes, IsEmpty());
  EXPECT_EQ(changes.cursor, before);
  const Cursor again = all().cursor;
  put("a", "2");
  EXPECT_EQ(store->changes(again).resume, Resume::resumed);
  EXPECT_THAT(told(store->changes(again)), ElementsAre("put a"));
}

TEST_P(StoreContract, ACursorThatIsStillInTheLogOutlivesATrim) {
  backend->trim(*store);
  const Cursor before = all().cursor;
  put("a", "1");
  EXPECT_THAT(told(store->changes(before)), ElementsAre("put a"));
}

TEST_P(StoreContract, AnotherStoresCursorIsRefused) {
  const auto elsewhere = GetParam().make();
  const Cursor foreignCursor = elsewhere->open()->snapshot({table}).cursor;
  put("a", "1");
  const Changes changes = store->changes(foreignCursor);
  EXPECT_EQ(changes.resume, Resume::otherStore);
  EXPECT_THAT(changes.changes, IsEmpty());
}

TEST_P(StoreContract, ACursorFromTheFutureIsRefused) {
  put("a", "1");
  Cursor cursor = all().cursor;
  ++cursor.sequence;
  EXPECT_EQ(store->changes(cursor).resume, Resume::otherStore);
}

TEST_P(StoreContract, ACommitOfAnybodyWakesAndLookingSilences) {
  const Closing wakeUp(store->wakeUp());
  const Cursor start = all().cursor;
  EXPECT_FALSE(wakeUp.isReadable());
  open()->commit(Transaction().put(table, "a", "1"));
  EXPECT_TRUE(wakeUp.isReadable());
  const Changes changes = store->changes(start);
  EXPECT_THAT(told(changes), ElementsAre("put a"));
  put("b", "1");
  EXPECT_TRUE(wakeUp.isReadable());
  EXPECT_THAT(told(store->changes(changes.cursor)), ElementsAre("put b"));
  EXPECT_FALSE(wakeUp.isReadable());
}

TEST_P(StoreContract, LookingSilencesAlsoWhenTheCursorIsRefused) {
  const Closing wakeUp(store->wakeUp());
  put("a", "1");
  EXPECT_EQ(store->changes({"nobody's", 0, {}}).resume, Resume::otherStore);
  EXPECT_FALSE(wakeUp.isReadable());
}

TEST_P(StoreContract, AWakeUpThatItsCallerClosedCanBeHadAgain) {
  close(store->wakeUp());
  const Closing wakeUp(store->wakeUp());
  put("a", "1");
  EXPECT_TRUE(wakeUp.isReadable());
}

TEST_P(StoreContract, AFailedCommitWakesNobody) {
  const Closing wakeUp(store->wakeUp());
  EXPECT_EQ(troubleOf([&] { put("a", "nonsense"); }), Trouble::invalid);
  EXPECT_FALSE(wakeUp.isReadable());
}

TEST_P(StoreContract, GuardedWritersLoseNoneOfTheirUpdates) {
  constexpr int each = 100;
  put("a", "0");
  const auto count = [&] {
    const auto mine = open();
    for (int done = 0; done < each;) {
      const Record record = *mine->record(table, "a");
      const int next = std::stoi(record.doc.str()) + 1;
      try {
        mine->commit(Transaction()
                         .guard(table, "a", record.revision)
                         .put(table, "a", rt::String(std::to_string(next))));
        ++done;
      } catch (const ConflictError&) {
        continue;
      }
    }
  };
  {
    const Thread one(count);
    const Thread two(count);
  }
  EXPECT_EQ(store->record(table, "a")->doc, std::to_string(2 * each));
}

// A transaction writes two records alike, one in each table; nobody ever sees them differ.
TEST_P(StoreContract, SnapshotsAndChangesAreWholeBesideAWriter) {
  std::atomic<bool> ended = false;
  const Closing wakeUp(store->wakeUp());
  Snapshot snapshot = all();
  Contents contents = contentsOf(snapshot);
  Cursor cursor = snapshot.cursor;
  const Thread writer([&] {
    const auto mine = open();
    for (int i = 0; i < 300; ++i) {
      const rt::String doc(std::to_string(i));
      mine->commit(Transaction().put(table, "a", doc).put(other, "a", doc));
    }
    ended = true;
  });
  for (bool last = false; !last;) {
    last = ended;
    const Snapshot now = all();
    const Contents seen = contentsOf(now);
    ASSERT_TRUE(seen.empty() || seen.begin()->second == seen.rbegin()->second);
    const Changes changes = store->changes(cursor);
    replay(changes, contents);
    cursor = changes.cursor;
    ASSERT_NE(changes.changes.size(), 1U);
    ASSERT_TRUE(contents.empty() || contents.begin()->second == contents.rbegin()->second);
    // The snapshot with the changes since is what is so now.
    Contents replayed = seen;
    replay(store->changes(now.cursor), replayed);
    ASSERT_GE(std::stoi(replayed.empty() ? "0" : replayed.begin()->second),
              std::stoi(seen.empty() ? "0" : seen.begin()->second));
  }
  EXPECT_EQ(contents, contentsOf(all()));
  EXPECT_EQ(contents.begin()->second, "299");
}

// Sleeps in poll() between the commits: a wake-up that was missed would stop the test.
TEST_P(StoreContract, AWatcherThatOnlyWakesWhenToldMissesNothing) {
  constexpr int commits = 300;
  const Closing wakeUp(store->wakeUp());
  Cursor cursor = all().cursor;
  std::atomic<int> seen = -1;
  const Thread writer([&] {
    const auto mine = open();
    for (int i = 0; i < commits; ++i) {
      mine->commit(Transaction().put(table, "a", rt::String(std::to_string(i))));
      while (seen < i) std::this_thread::yield();
    }
  });
  while (seen < commits - 1) {
    const bool woken = wakeUp.isReadable(20'000);
    EXPECT_TRUE(woken);
    if (!woken) seen = commits;  // lets the writer end
    const Changes changes = store->changes(cursor);
    cursor = changes.cursor;
    if (!changes.changes.empty()) seen = std::stoi(changes.changes.back().record.doc.str());
  }
  EXPECT_EQ(seen, commits - 1);
}

TEST_P(StoreContract, HoldsTenThousandRecords) {
  constexpr int count = 10'000;
  const Cursor before = all().cursor;
  Transaction fill;
  for (int i = 0; i < count; ++i)
    fill.put(table, rt::String("vm" + std::to_string(i)),
             rt::String("{\"n\":" + std::to_string(i) + "}"));
  store->commit(fill);
  const Snapshot snapshot = all();
  EXPECT_EQ(snapshot.records.size(), 10'000U);
  Contents contents;
  replay(store->changes(before), contents);
  EXPECT_EQ(contents, contentsOf(snapshot));
}

}  // namespace
}  // namespace statedb
