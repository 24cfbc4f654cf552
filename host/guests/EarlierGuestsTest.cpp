// Guests that run already when the daemon starts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "host/fakes/FakeGuestProcesses.h"
#include "host/fakes/FakeShims.h"
#include "host/fakes/SupervisorWorld.h"
#include "host/fakes/TroubledStore.h"
#include "host/guests/EarlierGuests.h"
#include "runtime/fakes/TraceRecorder.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

// Nobody acts on the configuration but who is tried.
class NoTaker final : public ConfigurationTaker {
 public:
  void interfaceIs(const rt::String&, const std::optional<rt::String>&) override {}
  void restartIs(const rt::String&, uint64_t, bool) override {}
  void restartIsPast(const rt::String&, uint64_t) override {}
  void stopIs(const rt::String&, uint64_t, int32_t) override {}
  void imageIs(const rt::String&, const std::optional<statedb::Record>&) override {}
  void imageIsLost(const rt::String&) override {}
  void ownRowIs(const rt::String&, const rt::String&,
                const std::optional<statedb::Record>&) override {}
  void rowIs(const rt::String&, const VmRow*) override {}
  void givenUpIs(const rt::String&, const rt::String&) override {}
};

class EarlierGuestsTest : public testing::Test, protected GuestFates {
 protected:
  // A row of another `created` is another VM's.
  void rowIs(const rt::String& vm, bool enabled, uint64_t created = 1) {
    put(vm, fakes::Row{.enabled = enabled}.doc(), created);
  }
  void rowIsNotUnderstood(const rt::String& vm) { put(vm, "{", 1); }
  void rowIsLost(const rt::String& vm) {
    take({statedb::Op::del, {"vmConfig", vm, {}, 0, 0}, statedb::Proof::comparison});
  }
  void rowDel(const rt::String& vm) { take({statedb::Op::del, {"vmConfig", vm, {}, 0, 0}}); }
  void givenUp(const rt::String& vm, int32_t pid) {
    take({statedb::Op::put,
          {"vmIntent", vm, R"({"remove":")" + processes.nameOf(pid) + "\"}", 1, 1}});
  }
  // The store shows that the row was removed that the guest was started by.
  void removed(const rt::String& vm, int32_t pid) {
    const auto store = config.other(statedb::Half::config);
    store->commit(statedb::Transaction().put("vmConfig", vm, "{}"));
    processes.rows[pid] = {config.data->history, store->record("vmConfig", vm)->created};
    store->commit(statedb::Transaction().del("vmConfig", vm));
  }
  void guestIs(const rt::String& vm, int32_t pid) { processes.guests.push_back({vm, pid}); }

  void adoptableIs(const rt::String& vm, bool is) override {
    if (is)
      adoptable.insert(vm);
    else
      adoptable.erase(vm);
  }
  void unknownIs(const std::vector<GuestProcess>& guest, const UnknownGuest& what) override {
    for (const GuestProcess& process : guest) unknown[process.vm].push_back(process.pid);
    shown[guest.front().vm] = what;
  }
  void unknownDel(const rt::String& vm) override { unknown.erase(vm); }
  void end(const std::vector<GuestProcess>& guest) override {
    for (const GuestProcess& process : guest) ended.push_back(process.pid);
  }

  rt::fakes::TraceRecorder traces;
  fakes::FakeGuestProcesses processes;
  std::vector<std::string> effects;
  fakes::FakeShims shims{effects};
  fakes::StoreFile config;
  fakes::StoreFile status;
  statedb::StateDb db = fakes::troubledDb(config, status);
  Configuration configuration{model::MachineLimits{.memory = 8192}, {"s1", 1, "h1"}};
  std::set<rt::String> adoptable;
  std::map<rt::String, std::vector<int32_t>> unknown;
  std::map<rt::String, UnknownGuest> shown;
  std::vector<int32_t> ended;  // pids
  WaitingGuests waiting;
  EarlierGuests guests{{.processes = processes,
                        .shims = shims,
                        .configuration = configuration,
                        .db = db,
                        .waiting = waiting,
                        .fates = *this}};

 private:
  void put(const rt::String& vm, const rt::String& doc, uint64_t created) {
    take({statedb::Op::put, {"vmConfig", vm, doc, ++revision_, created}});
  }
  void take(const statedb::Change& change) {
    NoTaker taker;
    configuration.take({change}, {"s1", 2, "h1"}, taker);
  }

  uint64_t revision_ = 0;
};

TEST_F(EarlierGuestsTest, GoOnWhenTheyAreWanted) {
  rowIs("web1", true);
  guestIs("web1", 7);
  guests.decide();
  EXPECT_THAT(ended, IsEmpty());
  EXPECT_THAT(adoptable, ElementsAre("web1"));
  EXPECT_TRUE(waiting.isWaiting("web1"));
}

TEST_F(EarlierGuestsTest, AreDecidedOnAnewOneByOne) {
  rowIs("web1", true);
  rowIs("web2", true);
  EXPECT_FALSE(guests.decideOn("web1"));
  guestIs("web1", 7);
  guestIs("web2", 8);
  EXPECT_TRUE(guests.decideOn("web1"));
  EXPECT_THAT(adoptable, ElementsAre("web1"));
  EXPECT_TRUE(waiting.isWaiting("web1"));
  EXPECT_FALSE(waiting.isWaiting("web2"));
}

TEST_F(EarlierGuestsTest, EndWhateverIsWantedOfThemWhenTheyAreToEnd) {
  rowIs("web1", true);
  EXPECT_FALSE(guests.end("web1"));
  guestIs("web1", 7);
  guestIs("web2", 8);
  guests.decideOn("web1");
  EXPECT_TRUE(guests.end("web1"));
  EXPECT_THAT(ended, ElementsAre(7));
  EXPECT_THAT(adoptable, IsEmpty());
  EXPECT_FALSE(waiting.isWaiting("web1"));
}

TEST_F(EarlierGuestsTest, EndWhenTheyAreNotWantedOrRemovedOrCannotBeDriven) {
  rowIs("anew", true);
  rowIs("off", false);
  rowIs("shimless", true);
  guestIs("anew", 6);
  guestIs("off", 7);
  guestIs("removed", 8);
  guestIs("shimless", 9);
  removed("anew", 6);
  removed("removed", 8);
  shims.gone = {"shimless"};
  guests.decide();
  EXPECT_THAT(ended, ElementsAre(6, 7, 8, 9));
  EXPECT_THAT(adoptable, IsEmpty());
  EXPECT_THAT(unknown, IsEmpty());
  EXPECT_FALSE(waiting.isWaiting("off"));
}

TEST_F(EarlierGuestsTest, GoOnWhenTheirVmIsNotThereAndNobodyIsKnownToHaveRemovedIt) {
  guestIs("web1", 7);
  shims.gone = {"web1"};
  guests.decide();
  EXPECT_THAT(ended, IsEmpty());
  EXPECT_THAT(adoptable, IsEmpty());
  EXPECT_THAT(unknown, ElementsAre(Pair("web1", ElementsAre(7))));
  EXPECT_TRUE(waiting.isWaiting("web1"));
}

TEST_F(EarlierGuestsTest, AreTakenUpWhenTheirVmIsThereAgain) {
  guestIs("web1", 7);
  guests.decide();
  rowIs("web1", true);
  guests.handleRow("web1");
  EXPECT_THAT(ended, IsEmpty());
  EXPECT_THAT(unknown, IsEmpty());
  EXPECT_THAT(adoptable, ElementsAre("web1"));
}

TEST_F(EarlierGuestsTest, EndWhenTheirVmIsThereAgainAndThenRemoved) {
  guestIs("web1", 7);
  guests.decide();
  rowIs("web1", true);
  guests.handleRow("web1");
  rowDel("web1");
  guests.handleRow("web1");
  EXPECT_THAT(ended, ElementsAre(7));
  EXPECT_THAT(adoptable, IsEmpty());
}

TEST_F(EarlierGuestsTest, EndWhenTheyAreGivenUp) {
  guestIs("web1", 7);
  guestIs("web2", 8);
  guests.decide();
  givenUp("web1", 7);
  guests.handleRow("web1");
  guests.handleRow("web2");
  EXPECT_THAT(ended, ElementsAre(7));
  EXPECT_THAT(unknown, ElementsAre(Pair("web2", ElementsAre(8))));
}

TEST_F(EarlierGuestsTest, GoOnWhenTheirRowIsLostBeforeTheyAreTakenUp) {
  rowIs("web1", true);
  guestIs("web1", 7);
  guests.decide();
  rowIsLost("web1");
  guests.handleRow("web1");
  EXPECT_THAT(ended, IsEmpty());
  EXPECT_THAT(adoptable, IsEmpty());
  EXPECT_THAT(unknown, ElementsAre(Pair("web1", ElementsAre(7))));

  rowIs("web1", true);
  guests.handleRow("web1");
  EXPECT_THAT(unknown, IsEmpty());
  EXPECT_THAT(adoptable, ElementsAre("web1"));
}

// A guest's own shim knows best of which row it is; one that stands in may be about to go.
TEST_F(EarlierGuestsTest, AreJudgedByWhoKeepsThemAndShareTheirFate) {
  guestIs("kept", 7);
  guestIs("kept", 8);
  guestIs("removed", 9);
  guestIs("removed", 10);
  removed("kept", 8);
  removed("removed", 9);
  guests.decide();
  EXPECT_THAT(unknown, ElementsAre(Pair("kept", ElementsAre(7, 8))));
  EXPECT_THAT(ended, ElementsAre(9, 10));
}

TEST_F(EarlierGuestsTest, GoOnWithoutAShimWhileTheirRowIsNotUnderstood) {
  rowIsNotUnderstood("web1");
  guestIs("web1", 7);
  shims.gone = {"web1"};
  guests.decide();
  EXPECT_THAT(ended, IsEmpty());
  rowIs("web1", true);
  guests.handleRow("web1");
  EXPECT_THAT(ended, ElementsAre(7)) << "nobody could drive it";
}

TEST_F(EarlierGuestsTest, GoOnWhileTheirRowIsNotUnderstood) {
  rowIsNotUnderstood("web1");
  guestIs("web1", 7);
  guests.decide();
  EXPECT_THAT(ended, IsEmpty());
  EXPECT_THAT(adoptable, IsEmpty());
  EXPECT_TRUE(waiting.isWaiting("web1"));

  rowIs("web1", true);
  guests.handleRow("web1");
  EXPECT_THAT(ended, IsEmpty());
  EXPECT_THAT(adoptable, ElementsAre("web1"));
}

TEST_F(EarlierGuestsTest, EndWhenTheyAreNotWantedAnyMoreBeforeTheyAreTakenUp) {
  rowIs("web1", true);
  rowIs("web2", true);
  guestIs("web1", 7);
  guestIs("web2", 8);
  guests.decide();
  rowIs("web1", false);
  guests.handleRow("web1");
  rowDel("web2");
  guests.handleRow("web2");
  EXPECT_THAT(ended, ElementsAre(7, 8));
  EXPECT_THAT(adoptable, IsEmpty());
}

TEST_F(EarlierGuestsTest, EndWhenTheirRowIsMadeAnewBeforeTheyAreTakenUp) {
  rowIs("web1", true, 1);
  guestIs("web1", 7);
  guests.decide();
  rowIs("web1", true, 2);
  guests.handleRow("web1");
  EXPECT_THAT(ended, ElementsAre(7));
  EXPECT_THAT(adoptable, IsEmpty());
  EXPECT_FALSE(waiting.isWaiting("web1"));
}

TEST_F(EarlierGuestsTest, GoOnWhenTheirRowIsChanged) {
  rowIs("web1", true);
  guestIs("web1", 7);
  guests.decide();
  guests.handleRow("web1");
  EXPECT_THAT(ended, IsEmpty());
  EXPECT_THAT(adoptable, ElementsAre("web1"));
}

TEST_F(EarlierGuestsTest, AreNoneOfOursOnceTheyAreTakenUp) {
  rowIs("web1", true);
  guestIs("web1", 7);
  guests.decide();
  (void)waiting.take("web1");
  EXPECT_FALSE(waiting.isWaiting("web1"));
  rowIs("web1", false);
  guests.handleRow("web1");
  EXPECT_THAT(ended, IsEmpty()) << "its VM's keeper ends it";
}

TEST_F(EarlierGuestsTest, GoOnWhereTheStoreCannotBeAskedWhetherTheyWereRemoved) {
  guestIs("web1", 7);
  removed("web1", 7);
  config.trouble = statedb::Trouble::failed;
  guests.decide();
  EXPECT_THAT(ended, IsEmpty());
  EXPECT_THAT(unknown, ElementsAre(Pair("web1", ElementsAre(7))));
  EXPECT_THAT(traces.take(1),
              ElementsAre("vmagentd: VM web1: whether it was removed: the file is in trouble"));
}

TEST_F(EarlierGuestsTest, ThatAreUnknownAreShownByTheirNameAndWhy) {
  guestIs("web1", 7);
  processes.rows[7] = {"h0", 3};
  guests.decide();
  EXPECT_EQ(shown["web1"].pid, 7);
  EXPECT_EQ(shown["web1"].name, "guest7");
  EXPECT_EQ(shown["web1"].why, "config.db is another than the one that its guest was started by");
}

}  // namespace
}  // namespace host
