#include <gmock/gmock.h>

#include <vector>

#include "shim/decide/StopPlan.h"

namespace shim {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::Pair;

constexpr Time start{5'000};
constexpr StopPlan::Guest running{true, true};
constexpr StopPlan::Guest neverRan{true, false};
constexpr StopPlan::Guest deaf{false, true};

// What is done from then on as time passes, and after how long.
std::vector<std::pair<StopStep, Duration>> restOf(StopPlan& plan, StopPlan::Guest guest) {
  std::vector<std::pair<StopStep, Duration>> steps;
  for (auto due = plan.deadline(); due; due = plan.deadline()) {
    EXPECT_EQ(plan.timePassed(*due - milliseconds(1), guest), StopStep::none);
    steps.emplace_back(plan.timePassed(*due, guest), *due - start);
  }
  return steps;
}

TEST(StopPlan, AtOnceAsksThenTerminatesThenKills) {
  StopPlan plan;
  EXPECT_EQ(plan.atOnce(start, running), StopStep::quit);
  EXPECT_THAT(restOf(plan, running),
              ElementsAre(Pair(StopStep::terminate, seconds(2)), Pair(StopStep::kill, seconds(4))));
}

TEST(StopPlan, OrderlyPressesThePowerButtonFirst) {
  StopPlan plan;
  EXPECT_EQ(plan.orderly(start, seconds(15), running), StopStep::powerDown);
  EXPECT_THAT(restOf(plan, running),
              ElementsAre(Pair(StopStep::quit, seconds(15)), Pair(StopStep::terminate, seconds(17)),
                          Pair(StopStep::kill, seconds(19))));
}

TEST(StopPlan, OrderlyWithoutTimeIsAtOnce) {
  StopPlan plan;
  EXPECT_EQ(plan.orderly(start, Duration::zero(), running), StopStep::quit);
}

TEST(StopPlan, OrderlyLeavesAGuestThatNeverRanItsButton) {
  StopPlan plan;
  EXPECT_EQ(plan.orderly(start, seconds(15), neverRan), StopStep::quit);
}

TEST(StopPlan, OrderlyTerminatesAQemuThatCannotBeAsked) {
  StopPlan plan;
  EXPECT_EQ(plan.orderly(start, seconds(15), deaf), StopStep::terminate);
}

TEST(StopPlan, TerminatesAQemuThatCanNoLongerBeAsked) {
  StopPlan plan;
  plan.orderly(start, seconds(15), running);
  EXPECT_EQ(plan.timePassed(start + seconds(15), deaf), StopStep::terminate);
}

TEST(StopPlan, TerminatesAtOnceAQemuThatCannotBeAsked) {
  StopPlan plan;
  EXPECT_EQ(plan.atOnce(start, deaf), StopStep::terminate);
}

TEST(StopPlan, SkipsAheadWhenToldAgain) {
  StopPlan plan;
  EXPECT_EQ(plan.orderly(start, seconds(15), running), StopStep::powerDown);
  EXPECT_EQ(plan.orderly(start, Duration::zero(), running), StopStep::quit);
  EXPECT_EQ(plan.atOnce(start, running), StopStep::terminate);
  EXPECT_EQ(plan.orderly(start, Duration::zero(), running), StopStep::kill);
  EXPECT_EQ(plan.atOnce(start, running), StopStep::kill);
}

TEST(StopPlan, CutsNoGuestOffThatIsOnlyAskedAgain) {
  StopPlan plan;
  plan.orderly(start, seconds(15), running);
  EXPECT_EQ(plan.orderly(start + seconds(1), seconds(15), running), StopStep::none);
  EXPECT_EQ(plan.deadline(), start + seconds(15)) << "nor has it longer than before";
  EXPECT_EQ(plan.orderly(start + seconds(1), seconds(3), running), StopStep::none);
  EXPECT_EQ(plan.deadline(), start + seconds(4));
  EXPECT_EQ(plan.timePassed(start + seconds(4), running), StopStep::quit);
  EXPECT_EQ(plan.orderly(start + seconds(5), seconds(1), running), StopStep::none);
  EXPECT_EQ(plan.deadline(), start + seconds(6));
}

TEST(StopPlan, IsHurriedByASignalWhileTheGuestShutsDown) {
  StopPlan plan;
  plan.orderly(start, seconds(15), running);
  EXPECT_EQ(plan.atOnce(start + seconds(1), running), StopStep::quit);
  EXPECT_EQ(plan.deadline(), start + seconds(3));
}

TEST(StopPlan, DoesNothingUntold) {
  StopPlan plan;
  EXPECT_FALSE(plan.hasBegun());
  EXPECT_EQ(plan.timePassed(start + seconds(1'000'000), running), StopStep::none);
  EXPECT_EQ(plan.deadline(), std::nullopt);
}

}  // namespace
}  // namespace shim
