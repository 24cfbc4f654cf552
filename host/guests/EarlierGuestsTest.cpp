// Guests that run already when the daemon starts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "host/fakes/FakeShims.h"
#include "host/guests/EarlierGuests.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class EarlierGuestsTest : public testing::Test {
 protected:
  void rowIs(const rt::String& vm, bool enabled, uint64_t number = 1) {
    rows[vm].valid = rt::make<Vm::VmConfig>(vm);
    rows[vm].valid->enabledIs(enabled);
    rows[vm].vm = number;
    rows[vm].isLost = false;
  }
  void rowIsNotUnderstood(const rt::String& vm) {
    rows[vm].valid = nullptr;
    rows[vm].vm = 1;
  }
  void rowIsLost(const rt::String& vm) {
    rows[vm].valid = nullptr;
    rows[vm].isLost = true;
  }
  // The store shows that the guest's row was removed.
  void removed(int32_t pid) { removals.insert(pid); }
  void guestIs(const rt::String& vm, int32_t pid) { processes.push_back({vm, pid}); }

  std::vector<GuestProcess> processes;
  std::vector<std::string> effects;
  fakes::FakeShims shims{effects};
  std::map<rt::String, VmRow> rows;
  std::set<int32_t> removals;
  std::set<int32_t> givenUp;
  std::set<rt::String> adoptable;
  std::map<rt::String, std::vector<int32_t>> unknown;
  std::vector<int32_t> ended;  // pids
  WaitingGuests waiting;
  EarlierGuests guests{
      shims,
      waiting,
      {
          .guests = [this] { return processes; },
          .row =
              [this](const rt::String& vm) {
                const auto found = rows.find(vm);
                return found == rows.end() ? nullptr : &found->second;
              },
          .isRemoved = [this](const GuestProcess& guest) { return removals.contains(guest.pid); },
          .isGivenUp = [this](const GuestProcess& guest) { return givenUp.contains(guest.pid); },
          .adoptableIs =
              [this](const rt::String& vm, bool is) {
                if (is)
                  adoptable.insert(vm);
                else
                  adoptable.erase(vm);
              },
          .unknownIs =
              [this](const rt::String& vm, const std::vector<GuestProcess>& all) {
                unknown.erase(vm);
                for (const GuestProcess& guest : all) unknown[vm].push_back(guest.pid);
              },
          .end =
              [this](const std::vector<GuestProcess>& all) {
                for (const GuestProcess& guest : all) ended.push_back(guest.pid);
              },
      }};
};

TEST_F(EarlierGuestsTest, GoOnWhenTheyAreWanted) {
  rowIs("web1", true);
  guestIs("web1", 7);
  guests.decide();
  EXPECT_THAT(ended, IsEmpty());
  EXPECT_THAT(adoptable, ElementsAre("web1"));
  EXPECT_TRUE(waiting.isWaiting("web1"));
}

TEST_F(EarlierGuestsTest, EndWhenTheyAreNotWantedOrRemovedOrCannotBeDriven) {
  rowIs("anew", true);
  rowIs("off", false);
  rowIs("shimless", true);
  guestIs("anew", 6);
  guestIs("off", 7);
  guestIs("removed", 8);
  guestIs("shimless", 9);
  removed(6);
  removed(8);
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
  rows.erase("web1");
  guests.handleRow("web1");
  EXPECT_THAT(ended, ElementsAre(7));
  EXPECT_THAT(adoptable, IsEmpty());
}

TEST_F(EarlierGuestsTest, EndWhenTheyAreGivenUp) {
  guestIs("web1", 7);
  guestIs("web2", 8);
  guests.decide();
  givenUp.insert(7);
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
  removed(8);
  removed(9);
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
  rows.erase("web2");
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

}  // namespace
}  // namespace host
