// Clock reactors that are handed another clock.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/fakes/LoopFixture.h"

namespace rt {
namespace {

using fakes::ManualClock;
using fakes::Sleeper;
using testing::ElementsAre;
using testing::IsEmpty;

using ClockReplacedTest = fakes::LoopTest;

TEST_F(ClockReplacedTest, AnotherClockCallsTheHandlerOnceAtOnce) {
  const auto other = make<ManualClock>();
  const auto a = sleeper("a", 1010);
  a->clockIs(other);
  EXPECT_THAT(take(), ElementsAre("a"));
  turn();
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(ClockReplacedTest, AnotherClockTakesTheWakeUpOver) {
  const auto other = make<ManualClock>();
  const auto a = sleeper("a", 1010);
  a->clockIs(other);
  take();
  EXPECT_EQ(a->wakeUp().notifier(), other);
  EXPECT_EQ(clock->nextWakeUpTime(), Seconds::infinity());
  EXPECT_EQ(other->nextWakeUpTime(), Seconds(1010));
  clock->advance(Seconds(100));
  EXPECT_THAT(take(), IsEmpty());
  other->nowIs(Seconds(1010));
  other->pass([] { return false; });
  EXPECT_THAT(take(), ElementsAre("a"));
}

TEST_F(ClockReplacedTest, AnotherClockAlsoCallsAHandlerThatHadFired) {
  const auto other = make<ManualClock>();
  const auto a = sleeper("a", 1000);
  turn();
  take();
  a->clockIs(other);
  EXPECT_THAT(take(), ElementsAre("a"));
  EXPECT_EQ(other->nextWakeUpTime(), Seconds::infinity());
}

TEST_F(ClockReplacedTest, ADueOneMovedToAnotherClockIsNotCalledByTheOldOne) {
  const auto other = make<ManualClock>();
  const auto a = sleeper("a", 1000);
  const auto b = sleeper("b", 1000);
  a->onClock = [&] { b->clockIs(other); };
  turn();
  EXPECT_THAT(take(), ElementsAre("a", "b"));  // b by the move alone
  other->nowIs(Seconds(1000));
  other->pass([] { return false; });
  EXPECT_THAT(take(), ElementsAre("b"));
}

TEST_F(ClockReplacedTest, WithoutAClockNothingIsCalled) {
  const auto a = sleeper("a", 1010);
  a->clockIs(nullptr);
  clock->advance(Seconds(100));
  EXPECT_THAT(take(), IsEmpty());
  EXPECT_EQ(clock->nextWakeUpTime(), Seconds::infinity());
}

TEST_F(ClockReplacedTest, AWakeUpSetWithoutAClockIsKeptForTheClockToCome) {
  const auto a = make<Sleeper>("a", log, nullptr);
  a->timeMinIs(1010);
  a->clockIs(clock);
  EXPECT_EQ(clock->nextWakeUpTime(), Seconds(1010));
  clock->advance(Seconds(10));
  EXPECT_THAT(take(), ElementsAre("a"));
}

TEST_F(ClockReplacedTest, TheSameClockAgainDoesNothing) {
  const auto a = sleeper("a", 1010);
  a->clockIs(clock);
  EXPECT_THAT(take(), IsEmpty());
  EXPECT_EQ(clock->nextWakeUpTime(), Seconds(1010));
}

}  // namespace
}  // namespace rt
