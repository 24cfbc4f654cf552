// When a card is cured, and how often.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "host/network/Healing.h"

namespace host {
namespace {

using enum CardState;
using rt::Seconds;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;

class HealingTest : public testing::Test {
 protected:
  bool next(CardState state) { return healing.next(state, now); }
  void cure(double took = 0) {
    const Seconds begun = now;
    now = now + Seconds(took);
    healing.cured(begun, now);
  }
  // The card is in that state for so long, and cures take that time: when it is cured.
  std::vector<double> curesWhile(CardState state, double seconds, double took = 0) {
    std::vector<double> cures;
    const Seconds end = now + Seconds(seconds);
    while (true) {
      if (next(state)) {
        cures.push_back(now.value());
        cure(took);
        continue;
      }
      if (healing.wakeUp() > end) break;
      now = std::max(now, healing.wakeUp());
    }
    now = end;
    return cures;
  }

  Seconds now{1000};
  Healing healing;
};

TEST_F(HealingTest, LeavesACardAloneThatIsWellOrHasNothingToBeOn) {
  for (const CardState state : {well, idle}) {
    EXPECT_FALSE(next(state));
    EXPECT_EQ(healing.wakeUp(), Seconds::infinity()) << "nothing is set on the clock";
  }
}

TEST_F(HealingTest, CuresACardThatIsSickForASecond) {
  EXPECT_FALSE(next(sick));
  EXPECT_EQ(healing.wakeUp(), Seconds(1001));
  now = Seconds(1000.9);
  EXPECT_FALSE(next(sick));
  now = Seconds(1001);
  EXPECT_TRUE(next(sick));
}

TEST_F(HealingTest, DoesNotCureACardThatGotWellInTime) {
  next(sick);
  now = Seconds(1000.5);
  EXPECT_FALSE(next(well));
  EXPECT_EQ(healing.wakeUp(), Seconds::infinity());
}

TEST_F(HealingTest, LooksAgainInASecondAtACardThatIsBusy) {
  EXPECT_FALSE(next(busy));
  EXPECT_EQ(healing.wakeUp(), Seconds(1001));
  EXPECT_FALSE(healing.isStubborn());
}

TEST_F(HealingTest, CuresMoreAndMorePatientlyWhatStaysSick) {
  EXPECT_THAT(curesWhile(sick, 1400),
              ElementsAre(1001, 1003, 1007, 1015, 1031, 1063, 1127, 1255, 1511, 1811, 2111));
}

TEST_F(HealingTest, GivesCuresThatTakeLongNoMoreThanAThirtiethOfTheTime) {
  EXPECT_THAT(curesWhile(sick, 1000, 10), ElementsAre(1001, 1311, 1621, 1931));
}

TEST_F(HealingTest, IsStubbornFromTheSecondCureThatWasInVain) {
  curesWhile(sick, 2);
  next(sick);
  EXPECT_FALSE(healing.isStubborn());
  curesWhile(sick, 1);
  next(sick);
  EXPECT_TRUE(healing.isStubborn());
  next(busy);
  EXPECT_TRUE(healing.isStubborn()) << "a cure is under way";
  next(well);
  EXPECT_FALSE(healing.isStubborn());
}

TEST_F(HealingTest, IsNotStubbornWhenItsInterfaceHasGone) {
  curesWhile(sick, 60);
  next(idle);
  EXPECT_FALSE(healing.isStubborn());
  EXPECT_EQ(healing.wakeUp(), Seconds::infinity());
}

TEST_F(HealingTest, CuresARelapseSoonWhenTheCardWasWellForLong) {
  curesWhile(sick, 10);
  next(well);
  now = now + Seconds(60);
  const double relapse = now.value();
  EXPECT_THAT(curesWhile(sick, 2), ElementsAre(relapse + 1));
  EXPECT_FALSE(healing.isStubborn());
}

TEST_F(HealingTest, CuresAtOnceWhenWhatWasInTheWayHasGone) {
  curesWhile(sick, 100);
  ASSERT_FALSE(next(sick));
  healing.hurry();
  EXPECT_TRUE(next(sick));
  cure();
  EXPECT_FALSE(next(sick));
  EXPECT_EQ(healing.wakeUp(), now + Seconds(128));
}

// Somebody deletes its device as often as it gets one.
TEST_F(HealingTest, RaisesNoStormOverACardThatRelapsesAtOnce) {
  std::vector<double> cures;
  for (int i = 0; i < 3600; ++i) {
    for (const double time : curesWhile(sick, 0.5)) cures.push_back(time);
    next(well);
    now = now + Seconds(0.5);
  }
  EXPECT_THAT(cures, SizeIs(Le(20)));
}

TEST_F(HealingTest, TellsOfACardThatRelapsesAgainAndAgain) {
  for (int i = 0; i < 3; ++i) {
    curesWhile(sick, healing.wakeUp() < Seconds::infinity() ? 10 : 4);
    next(well);
    now = now + Seconds(0.1);
  }
  next(sick);
  EXPECT_TRUE(healing.isStubborn());
}

}  // namespace
}  // namespace host
