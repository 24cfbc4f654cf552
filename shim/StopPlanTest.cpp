#include <gmock/gmock.h>

#include "shim/StopPlan.h"

namespace shim {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr Time start{5'000};

TEST(StopPlan, AsksThenTerminatesThenKills) {
  StopPlan plan;
  EXPECT_EQ(plan.told(start, true), StopStep::quit);
  EXPECT_EQ(plan.timePassed(start + milliseconds(1'999), true), StopStep::none);
  EXPECT_EQ(plan.timePassed(start + seconds(2), true), StopStep::terminate);
  EXPECT_EQ(plan.timePassed(start + milliseconds(3'999), true), StopStep::none);
  EXPECT_EQ(plan.timePassed(start + seconds(4), true), StopStep::kill);
  EXPECT_EQ(plan.deadline(), std::nullopt);
}

TEST(StopPlan, TerminatesAtOnceAQemuThatCannotBeAsked) {
  StopPlan plan;
  EXPECT_EQ(plan.told(start, false), StopStep::terminate);
}

TEST(StopPlan, SkipsAheadWhenToldAgain) {
  StopPlan plan;
  EXPECT_EQ(plan.told(start, true), StopStep::quit);
  EXPECT_EQ(plan.told(start, true), StopStep::terminate);
  EXPECT_EQ(plan.told(start, true), StopStep::kill);
  EXPECT_EQ(plan.told(start, true), StopStep::kill);
}

TEST(StopPlan, DoesNothingUntold) {
  StopPlan plan;
  EXPECT_FALSE(plan.hasBegun());
  EXPECT_EQ(plan.timePassed(start + seconds(1'000'000), true), StopStep::none);
  EXPECT_EQ(plan.deadline(), std::nullopt);
}

TEST(StopPlan, TellsWhenItsNextStepIsDue) {
  StopPlan plan;
  plan.told(start, true);
  EXPECT_TRUE(plan.hasBegun());
  EXPECT_EQ(plan.deadline(), start + seconds(2));
}

}  // namespace
}  // namespace shim
