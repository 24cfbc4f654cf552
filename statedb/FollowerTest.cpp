// Following the store: each difference is told once, whatever happened to the log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <string>

#include "statedb/Follower.h"
#include "statedb/fakes/MemoryStore.h"
#include "statedb/fakes/StatusTables.h"

namespace statedb {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FollowerTest : public testing::Test {
 protected:
  StateDb::Opener opener(std::shared_ptr<fakes::MemoryData>& data, Half half) {
    return [this, &data, half] {
      auto store = std::make_unique<fakes::MemoryStore>(data, half, fakes::isStatus);
      if (half == Half::config) open_ = store.get();
      return store;
    };
  }
  void put(const char* key, const char* doc, const char* table = "vmConfig") {
    db.commit(Transaction().put(table, key, doc));
  }
  void del(const char* key) { db.commit(Transaction().del("vmConfig", key)); }
  // "put a 1", "del a"; what is known by comparison has a question mark.
  std::vector<std::string> news() {
    std::vector<std::string> texts;
    for (const Change& change : follower.catchUp())
      texts.push_back((change.op == Op::put ? "put" : "del") +
                      std::string(change.proof == Proof::comparison ? "? " : " ") +
                      change.record.key.str() +
                      (change.op == Op::put ? " " + change.record.doc.str() : ""));
    return texts;
  }
  // The file is replaced, by a new one or by a copy.
  void replace(std::shared_ptr<fakes::MemoryData> data) {
    config_ = std::move(data);
    follower.reopen();
  }
  std::shared_ptr<fakes::MemoryData> backup() {
    return std::make_shared<fakes::MemoryData>(*config_);
  }

  std::shared_ptr<fakes::MemoryData> config_ = std::make_shared<fakes::MemoryData>();
  std::shared_ptr<fakes::MemoryData> status_ = std::make_shared<fakes::MemoryData>();
  fakes::MemoryStore* open_ = nullptr;
  StateDb db{opener(config_, Half::config), opener(status_, Half::status), fakes::isStatus};
  Follower follower{db, {"vmConfig", "vmIntent"}};
};

TEST_F(FollowerTest, TellsAtFirstAllThereIsInOrderOfItsLastChange) {
  put("b", "1");
  put("a", "1");
  put("b", "2");
  EXPECT_THAT(news(), ElementsAre("put? a 1", "put? b 2"));
  EXPECT_THAT(news(), IsEmpty());
}

TEST_F(FollowerTest, TellsOnlyOfItsTables) {
  put("a", "1", "interface");
  EXPECT_THAT(news(), IsEmpty());
  put("b", "1", "interface");
  put("c", "1", "vmIntent");
  EXPECT_THAT(news(), ElementsAre("put c 1"));
}

TEST_F(FollowerTest, TellsWhatChangedSince) {
  put("a", "1");
  news();
  put("a", "2");
  put("b", "1");
  EXPECT_THAT(news(), ElementsAre("put a 2", "put b 1"));
  del("a");
  EXPECT_THAT(news(), ElementsAre("del a"));
}

TEST_F(FollowerTest, SaysNothingOfWhatCameAndWent) {
  news();
  put("a", "1");
  del("a");
  EXPECT_THAT(news(), IsEmpty());
}

TEST_F(FollowerTest, TellsOfARecordMadeAnewThatItIsAnother) {
  put("a", "1");
  const auto first = follower.catchUp().at(0).record.created;
  del("a");
  put("a", "1");
  const auto second = follower.catchUp();
  ASSERT_EQ(second.size(), 1U);
  EXPECT_NE(second[0].record.created, first);
}

TEST_F(FollowerTest, MissesNothingWhenTheLogWasTrimmed) {
  put("a", "1");
  put("b", "1");
  put("c", "1");
  news();
  del("a");
  put("b", "2");
  put("d", "1");
  open_->trim();
  EXPECT_THAT(news(), ElementsAre("del a", "put b 2", "put d 1"));
  EXPECT_THAT(news(), IsEmpty());
}

TEST_F(FollowerTest, TellsByHistoryThatARecordWasMadeAnewThoughTheLogWasTrimmed) {
  put("a", "1");
  news();
  del("a");
  put("a", "1");
  open_->trim();
  EXPECT_THAT(news(), ElementsAre("del a", "put a 1"));
}

TEST_F(FollowerTest, TellsAllOfAnotherStoreAndWhatItDoesNotHave) {
  put("a", "1");
  put("b", "1");
  news();
  replace(std::make_shared<fakes::MemoryData>());
  put("b", "1");
  EXPECT_THAT(news(), ElementsAre("del? a", "put? b 1"));
  EXPECT_THAT(news(), IsEmpty());
}

TEST_F(FollowerTest, TakesNoRecordForRemovedThatAnOlderCopyDoesNotHave) {
  put("old", "1");
  const auto older = backup();
  put("a", "1");
  news();
  replace(older);
  EXPECT_THAT(news(), ElementsAre("del? a", "put? old 1"));
  // However far the copy comes by other changes.
  for (const char* doc : {"2", "3", "4"}) put("old", doc);
  EXPECT_THAT(news(), ElementsAre("put old 4"));
  replace(backup());
  EXPECT_THAT(news(), ElementsAre("put? old 4"));
}

TEST_F(FollowerTest, TellsByHistoryWhatACopyOfTheStoreRemovedWhileNobodyLooked) {
  put("a", "1");
  put("b", "1");
  news();
  replace(backup());
  del("a");
  del("b");
  put("b", "1");
  EXPECT_THAT(news(), ElementsAre("del a", "del b", "put? b 1"));
}

TEST_F(FollowerTest, TellsByHistoryThatALostRecordIsChangedOrRemoved) {
  put("a", "1");
  put("b", "1");
  put("c", "1");
  news();
  replace(std::make_shared<fakes::MemoryData>());
  EXPECT_THAT(news(), ElementsAre("del? a", "del? b", "del? c"));
  put("a", "2");
  EXPECT_THAT(news(), ElementsAre("put a 2"));
  put("b", "2");
  del("b");
  EXPECT_THAT(news(), ElementsAre("del b"));
  del("a");
  EXPECT_THAT(news(), ElementsAre("del a"));
}

TEST_F(FollowerTest, TellsOfALostRecordThatItWasRemovedOnceItsStoreIsBackWithoutIt) {
  put("a", "1");
  put("b", "1");
  news();
  const auto before = config_;
  replace(std::make_shared<fakes::MemoryData>());
  news();
  replace(before);
  del("a");
  EXPECT_THAT(news(), ElementsAre("del a", "put? b 1"));
}

TEST_F(FollowerTest, TellsOfALostRecordThatItIsAnotherOnceItsHistoryMadeItAnew) {
  put("old", "1");
  const auto older = backup();
  put("a", "1");
  news();
  replace(older);
  news();
  for (const char* doc : {"2", "3"}) put("old", doc);
  put("a", "2");
  del("a");
  put("a", "3");
  EXPECT_THAT(news(), ElementsAre("put old 3", "del a", "put a 3"));
}

TEST_F(FollowerTest, TellsTheSameAgainWhenALookFailed) {
  put("a", "1");
  put("b", "1");
  news();
  replace(backup());
  del("a");
  config_->failsLooks = true;
  EXPECT_THROW(follower.catchUp(), Error);
  config_->failsLooks = false;
  EXPECT_THAT(news(), ElementsAre("del a", "put? b 1"));
  replace(std::make_shared<fakes::MemoryData>());
  news();
  put("b", "2");
  config_->failsLooks = true;
  EXPECT_THROW(follower.catchUp(), Error);
  config_->failsLooks = false;
  EXPECT_THAT(news(), ElementsAre("put b 2"));
}

TEST_F(FollowerTest, FollowsOneHalfOfTheDatabaseOnly) {
  EXPECT_DEATH(Follower(db, {"vmConfig", "vmStatus"}),
               "assertion failed: one half of the database is followed\n");
}

TEST_F(FollowerTest, WakesItsOwnerWhenThereIsNews) {
  const int wakeUp = follower.wakeUp();
  news();
  pollfd look{wakeUp, POLLIN, 0};
  EXPECT_EQ(poll(&look, 1, 0), 0);
  put("a", "1");
  EXPECT_EQ(poll(&look, 1, 0), 1);
  news();
  EXPECT_EQ(poll(&look, 1, 0), 0);
  close(wakeUp);
}

}  // namespace
}  // namespace statedb
