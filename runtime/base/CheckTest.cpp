#include <gtest/gtest.h>

#include <csignal>

#include "runtime/base/Check.h"
#include "runtime/base/Format.h"

namespace rt {
namespace {

TEST(Check, LetsATrueConditionPass) {
  int passed = 0;
  check(true, "never printed");
  ++passed;
  EXPECT_EQ(passed, 1);
}

// Compiled in every build: there is no switch that turns it off.
TEST(CheckDeathTest, FalseConditionEndsTheProcessWithItsTextAndPlace) {
  EXPECT_DEATH(check(false, "monitorInput()"),
               "CheckTest.cpp:[0-9]+: assertion failed: monitorInput\\(\\)\n$");
}

TEST(CheckDeathTest, EndsTheProcessByAbort) {
  EXPECT_EXIT(check(false, "text"), ::testing::KilledBySignal(SIGABRT), "assertion failed: text");
}

TEST(CheckDeathTest, SaysThePlaceOfItsCaller) {
  const String place = format("CheckTest.cpp:%d: ", __LINE__ + 1);
  EXPECT_DEATH(check(1 + 1 == 3, "sums"), place.charPtr());
}

TEST(CheckDeathTest, PrintsATextWithPercentSignsAsItIs) {
  EXPECT_DEATH(check(false, "100%s sure"), "assertion failed: 100%s sure");
}

TEST(Check, DebugChecksAreOnExactlyWhereNDEBUGIsNotDefined) {
#ifdef NDEBUG
  EXPECT_FALSE(debugChecks);
#else
  EXPECT_TRUE(debugChecks);
#endif
}

}  // namespace
}  // namespace rt
