// Guests that run already when the daemon starts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "host/guests/EarlierGuests.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class EarlierGuestsTest : public testing::Test {
 protected:
  void rowIs(const rt::String& vm, bool enabled, uint64_t created = 1) {
    rows[vm].valid = rt::make<Vm::VmConfig>(vm);
    rows[vm].valid->enabledIs(enabled);
    rows[vm].created = created;
  }
  void rowIsNotUnderstood(const rt::String& vm) {
    rows[vm].valid = nullptr;
    rows[vm].created = 1;
  }
  void guestIs(const rt::String& vm, int32_t pid) {
    processes.push_back({vm, pid});
    driven.insert(vm);
  }

  std::vector<GuestProcess> processes;
  std::set<rt::String> driven;  // VMs with a shim
  std::map<rt::String, VmRow> rows;
  std::set<rt::String> adoptable;
  std::vector<int32_t> ended;  // pids
  EarlierGuests guests{{
      .guests = [this] { return processes; },
      .canBeDriven = [this](const rt::String& vm) { return driven.contains(vm); },
      .row =
          [this](const rt::String& vm) {
            const auto found = rows.find(vm);
            return found == rows.end() ? nullptr : &found->second;
          },
      .adoptableIs =
          [this](const rt::String& vm, bool is) {
            if (is)
              adoptable.insert(vm);
            else
              adoptable.erase(vm);
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
  EXPECT_TRUE(guests.isWaiting("web1"));
}

TEST_F(EarlierGuestsTest, EndWhenTheyAreNotWantedOrNobodysOrCannotBeDriven) {
  rowIs("off", false);
  rowIs("shimless", true);
  guestIs("off", 7);
  guestIs("shimless", 8);
  guestIs("unknown", 9);
  driven.erase("shimless");
  guests.decide();
  EXPECT_THAT(ended, ElementsAre(7, 8, 9));
  EXPECT_THAT(adoptable, IsEmpty());
  EXPECT_FALSE(guests.isWaiting("off"));
}

TEST_F(EarlierGuestsTest, GoOnWhileTheirRowIsNotUnderstood) {
  rowIsNotUnderstood("web1");
  guestIs("web1", 7);
  guests.decide();
  EXPECT_THAT(ended, IsEmpty());
  EXPECT_THAT(adoptable, IsEmpty());
  EXPECT_TRUE(guests.isWaiting("web1"));

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
  EXPECT_FALSE(guests.isWaiting("web1"));
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
  guests.tookUp("web1");
  EXPECT_FALSE(guests.isWaiting("web1"));
  rowIs("web1", false);
  guests.handleRow("web1");
  EXPECT_THAT(ended, IsEmpty()) << "its VM's keeper ends it";
}

}  // namespace
}  // namespace host
