#include <gtest/gtest.h>

#include "sim/oracle/Ledger.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

class LedgerTest : public testing::Test {
 protected:
  Time now = 100s;
  Ledger ledger{[this] { return now; }};
};

TEST_F(LedgerTest, AGuestMayEndForWhatWasDoneSinceItBegan) {
  EXPECT_FALSE(ledger.causeOfEnd("vm1", 90s));
  ledger.mayEnd("vm1", "it is killed");
  EXPECT_EQ(ledger.causeOfEnd("vm1", 90s), "it is killed");
  EXPECT_FALSE(ledger.causeOfEnd("vm2", 90s));
  EXPECT_FALSE(ledger.causeOfEnd("vm1", 110s));
}

TEST_F(LedgerTest, WhoWasAskedToEndComesBackAndWhoFellStands) {
  ledger.askToEnd("vm1", "it is restarted");
  EXPECT_TRUE(ledger.wasAskedToEnd("vm1", 90s));
  EXPECT_FALSE(ledger.wasAskedToEnd("vm1", 101s));
  ledger.handleEnd("vm1", "it was killed", true);
  EXPECT_EQ(ledger.standsBecause("vm1"), "it was killed");
  ledger.handleAsked("vm1", 99s);
  EXPECT_TRUE(ledger.standsBecause("vm1"));
  ledger.handleAsked("vm1", 100s);
  EXPECT_FALSE(ledger.standsBecause("vm1"));
}

TEST_F(LedgerTest, WhoIsSwitchedOffAndOnAtOnceMayStandOn) {
  ledger.wantedIs("vm1", true);
  ledger.handleEnd("vm1", "it was killed", true);
  ledger.wantedIs("vm1", false);
  now += 1ms;
  ledger.wantedIs("vm1", true);
  EXPECT_TRUE(ledger.standsBecause("vm1"));
  ledger.wantedIs("vm1", false);
  now += 10s;
  ledger.wantedIs("vm1", true);
  EXPECT_FALSE(ledger.standsBecause("vm1"));
}

TEST_F(LedgerTest, AVmIsCalmSinceItWasTouchedLast) {
  ledger.touch("vm1");
  now += 5s;
  EXPECT_EQ(ledger.calmFor("vm1"), 5s);
  EXPECT_EQ(ledger.calmFor("vm2"), 105s);
  ledger.touchAll();
  EXPECT_EQ(ledger.calmFor("vm2"), 0s);
}

}  // namespace
}  // namespace sim
