// Configuration on its way in: at once, each change once, whatever becomes of the file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/database/ConfigFeed.h"
#include "host/fakes/TroubledStore.h"
#include "runtime/fakes/ManualClock.h"
#include "runtime/fakes/TraceRecorder.h"
#include "runtime/loop/ActivityManager.h"

namespace host {
namespace {

using statedb::Trouble;
using testing::ElementsAre;
using testing::IsEmpty;

class ConfigFeedTest : public testing::Test {
 protected:
  void start() {
    feed = rt::make<ConfigFeed>(
        db, std::vector<rt::String>{"vmConfig", "vmIntent"},
        [this](const std::vector<statedb::Change>& changes, const statedb::Cursor& moment) {
          reached = moment;
          for (const auto& [op, record, proof, author] : changes)
            news.push_back((op == statedb::Op::put ? "put " : "del ") + record.key.str() +
                           (op == statedb::Op::put ? " " + record.doc.str() : ""));
        },
        clock);
  }
  // Somebody else's commits.
  void put(const char* key, const char* doc) {
    config.other(statedb::Half::config)->commit(statedb::Transaction().put("vmConfig", key, doc));
  }
  void del(const char* key) {
    config.other(statedb::Half::config)->commit(statedb::Transaction().del("vmConfig", key));
  }
  void turn() { manager.turn(rt::Seconds(0)); }
  std::vector<std::string> take() { return std::exchange(news, {}); }
  std::vector<std::string> reports() { return traces.take(1); }

  const rt::Ptr<rt::fakes::ManualClock> clock = rt::make<rt::fakes::ManualClock>();
  rt::ActivityManager manager{clock};
  rt::fakes::TraceRecorder traces;
  fakes::StoreFile config;
  fakes::StoreFile status;
  statedb::StateDb db = fakes::troubledDb(config, status);
  std::vector<std::string> news;
  statedb::Cursor reached;
  ConfigFeed::Ptr feed;
};

TEST_F(ConfigFeedTest, HandsAllThereIsOnAtFirst) {
  put("b", "1");
  put("a", "2");
  start();
  EXPECT_THAT(take(), ElementsAre("put b 1", "put a 2"));
}

TEST_F(ConfigFeedTest, ThrowsWhenItCannotBeReadAtFirst) {
  config.trouble = Trouble::corrupt;
  EXPECT_THROW(start(), statedb::Error);
}

TEST_F(ConfigFeedTest, HandsAChangeOnAtOnce) {
  start();
  take();
  put("a", "1");
  turn();
  EXPECT_THAT(take(), ElementsAre("put a 1"));
  del("a");
  turn();
  EXPECT_THAT(take(), ElementsAre("del a"));
}

TEST_F(ConfigFeedTest, TellsTheMomentThatItsChangesLeadTo) {
  put("a", "1");
  start();
  EXPECT_EQ(reached, config.other(statedb::Half::config)->snapshot({}).cursor);
  // What does not concern it moves the moment, too: who committed it may wait for that.
  config.other(statedb::Half::config)->commit(statedb::Transaction().put("other", "a", "1"));
  turn();
  EXPECT_EQ(reached, config.other(statedb::Half::config)->snapshot({}).cursor);
}

TEST_F(ConfigFeedTest, MissesNothingThatIsCommittedAsItReads) {
  config.afterRead = [this] { put("a", "1"); };
  start();
  turn();
  EXPECT_THAT(take(), ElementsAre("put a 1"));
}

TEST_F(ConfigFeedTest, NeverWakesWhenThereIsNothingToDo) {
  start();
  turn();
  const int before = config.calls;
  clock->advance(rt::Seconds(3600));
  EXPECT_EQ(config.calls, before);
  EXPECT_EQ(clock->nextWakeUpTime(), rt::Seconds::infinity());
}

TEST_F(ConfigFeedTest, ReadsALockedFileOnceItIsFree) {
  start();
  put("a", "1");
  config.trouble = Trouble::locked;
  turn();
  clock->advance(rt::Seconds(2.5));
  EXPECT_THAT(take(), IsEmpty());
  config.trouble.reset();
  clock->advance(rt::Seconds(1));
  EXPECT_THAT(take(), ElementsAre("put a 1"));
  put("b", "1");
  turn();
  EXPECT_THAT(take(), ElementsAre("put b 1"));
}

TEST_F(ConfigFeedTest, ReportsATroubleOnceAndItsEnd) {
  start();
  put("a", "1");
  config.trouble = Trouble::locked;
  turn();
  clock->advance(rt::Seconds(30));
  EXPECT_THAT(reports(), ElementsAre("vmagentd: configuration: the file is in trouble"));
  config.trouble.reset();
  clock->advance(rt::Seconds(1));
  EXPECT_THAT(reports(), ElementsAre("vmagentd: configuration: read again"));
}

TEST_F(ConfigFeedTest, TriesOnceASecondWhileThereIsTrouble) {
  start();
  put("a", "1");
  config.trouble = Trouble::locked;
  turn();
  const int before = config.calls;
  turn();
  turn();
  EXPECT_EQ(config.calls, before) << "the commit is still there to be read";
  clock->advance(rt::Seconds(10));
  EXPECT_EQ(config.calls, before + 10);
}

TEST_F(ConfigFeedTest, MissesNothingThatIsCommittedAsItComesBack) {
  start();
  put("a", "1");
  config.trouble = Trouble::locked;
  turn();
  config.trouble.reset();
  config.afterRead = [this] { put("b", "1"); };
  clock->advance(rt::Seconds(1));
  turn();
  EXPECT_THAT(take(), ElementsAre("put a 1", "put b 1"));
}

TEST_F(ConfigFeedTest, TellsHowAFileDiffersThatTookAnothersPlace) {
  put("a", "1");
  put("b", "1");
  start();
  take();
  put("c", "1");
  config.replace();
  put("b", "2");
  turn();
  clock->advance(rt::Seconds(1));
  EXPECT_THAT(take(), ElementsAre("del a", "put b 2"));
  put("d", "1");
  turn();
  EXPECT_THAT(take(), ElementsAre("put d 1")) << "it listens to the new one";
}

TEST_F(ConfigFeedTest, MissesNothingThatIsCommittedAsItReadsTheNewFile) {
  start();
  put("a", "1");
  config.replace();
  config.afterRead = [this] { put("b", "1"); };
  turn();
  clock->advance(rt::Seconds(1));
  turn();
  EXPECT_THAT(take(), ElementsAre("put b 1"));
}

TEST_F(ConfigFeedTest, OpensANewFileThatIsLockedAtFirst) {
  start();
  put("a", "1");
  config.replace();
  put("b", "1");
  turn();
  config.trouble = Trouble::locked;
  clock->advance(rt::Seconds(3));
  config.trouble.reset();
  clock->advance(rt::Seconds(1));
  EXPECT_THAT(take(), ElementsAre("put b 1"));
  put("c", "1");
  turn();
  EXPECT_THAT(take(), ElementsAre("put c 1"));
}

TEST_F(ConfigFeedTest, LosesNothingThatItReadThoughItCouldNotListenAnew) {
  start();
  put("a", "1");
  config.trouble = Trouble::locked;
  turn();
  config.trouble.reset();
  config.isDeaf = true;
  clock->advance(rt::Seconds(1));
  EXPECT_THAT(take(), ElementsAre("put a 1"));
}

TEST_F(ConfigFeedTest, LosesNothingWhileItCannotListen) {
  start();
  put("a", "1");
  config.replace();
  put("b", "1");
  config.isDeaf = true;
  turn();
  clock->advance(rt::Seconds(5));
  config.isDeaf = false;
  clock->advance(rt::Seconds(1));
  EXPECT_THAT(take(), ElementsAre("put b 1"));
}

TEST_F(ConfigFeedTest, LeavesWhatWasHandedOnInForceWhileThereIsTrouble) {
  put("a", "1");
  start();
  take();
  config.trouble = Trouble::missing;
  put("b", "1");
  turn();
  clock->advance(rt::Seconds(60));
  EXPECT_THAT(take(), IsEmpty());
}

}  // namespace
}  // namespace host
