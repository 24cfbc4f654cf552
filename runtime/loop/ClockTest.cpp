#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <optional>
#include <random>

#include "runtime/fakes/LoopFixture.h"
#include "runtime/loop/Clock.h"

namespace rt {
namespace clocktest {

// A machine that drops its clock reactor. g++ wants a getter of its base to be of a named
// namespace.
class Waker final : public StateMachineOf<Waker> {
 public:
  explicit Waker(rt::Ptr<Clock> clock) { wakeUp_.emplace(*this, std::move(clock)); }
  void drop() { wakeUp_.reset(); }

  static constexpr std::string_view typeName = "Test::Waker";
  using Attributes = AttributeTable<Attribute<"initialized", &Waker::initialized>>;

 private:
  void handleClock() { ADD_FAILURE() << "it was dropped"; }

  std::optional<ClockReactor<Waker, &Waker::handleClock>> wakeUp_;
};

}  // namespace clocktest

namespace {

using clocktest::Waker;

using fakes::Log;
using fakes::ManualClock;
using fakes::Sleeper;
using testing::ElementsAre;
using testing::IsEmpty;

// The clock stands at 1000 s.
using ClockTest = fakes::LoopTest;

TEST_F(ClockTest, ANewReactorIsCalledOnceAtTheFirstPass) {
  const auto a = make<Sleeper>("a", log, clock);
  turn();
  EXPECT_THAT(take(), ElementsAre("a"));
  clock->advance(Seconds(1e6));
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(ClockTest, ANewReactorHasWakeUpTime0) {
  const auto a = make<Sleeper>("a", log, clock);
  EXPECT_EQ(a->wakeUp().timeMin(), Seconds(0));
}

TEST_F(ClockTest, AReactorSetBeforeTheFirstPassIsNotCalledByIt) {
  const auto a = make<Sleeper>("a", log, clock);
  a->timeMinIs(1010);
  turn();
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(ClockTest, FiresWhenTheTimeIsReachedAndNotBefore) {
  const auto a = sleeper("a", 1010);
  clock->nowIs(Seconds(1009.999));
  turn();
  EXPECT_THAT(take(), IsEmpty());
  clock->nowIs(Seconds(1010));
  turn();
  EXPECT_THAT(take(), ElementsAre("a"));
}

TEST_F(ClockTest, IsSilentOnceItHasFired) {
  const auto a = sleeper("a", 1010);
  clock->advance(Seconds(10));
  take();
  clock->advance(Seconds(1e6));
  EXPECT_THAT(take(), IsEmpty());
  EXPECT_EQ(clock->nextWakeUpTime(), Seconds::infinity());
}

TEST_F(ClockTest, SetInThePastFiresAtTheNextPass) {
  const auto a = sleeper("a", 5);
  EXPECT_THAT(take(), IsEmpty());  // not before
  turn();
  EXPECT_THAT(take(), ElementsAre("a"));
}

TEST_F(ClockTest, SetToNowFiresAtTheNextPass) {
  const auto a = sleeper("a", 1000);
  turn();
  EXPECT_THAT(take(), ElementsAre("a"));
}

TEST_F(ClockTest, FiresAgainWhenSetToTheSameTime) {
  const auto a = sleeper("a", 1000);
  turn();
  a->timeMinIs(1000);
  turn();
  EXPECT_THAT(take(), ElementsAre("a", "a"));
}

TEST_F(ClockTest, SetTwiceToTheSameTimeFiresOnce) {
  const auto a = sleeper("a", 1000);
  a->timeMinIs(1000);
  turn();
  turn();
  EXPECT_THAT(take(), ElementsAre("a"));
}

TEST_F(ClockTest, SetToNowInItsOwnHandlerFiresAtTheNextPassAndNotInThisOne) {
  const auto a = sleeper("a", 1000);
  a->onClock = [&] { a->timeMinIs(clock->now()); };
  turn();
  EXPECT_THAT(take(), ElementsAre("a"));
  turn();
  EXPECT_THAT(take(), ElementsAre("a"));
}

TEST_F(ClockTest, AHandlerThatSetsItsNextTimeRunsAtEachInterval) {
  std::vector<double> times;
  const auto a = sleeper("a", 1005);
  a->onClock = [&] {
    times.push_back(clock->now().value());
    a->timeMinIs(clock->now() + Seconds(5));
  };
  clock->advance(Seconds(17));
  EXPECT_THAT(times, ElementsAre(1005, 1010, 1015));
}

TEST_F(ClockTest, SetToALaterTimeIsNotCalledAtTheEarlierOne) {
  const auto a = sleeper("a", 1010);
  a->timeMinIs(1020);
  clock->advance(Seconds(19));
  EXPECT_THAT(take(), IsEmpty());
  clock->advance(Seconds(1));
  EXPECT_THAT(take(), ElementsAre("a"));
}

TEST_F(ClockTest, SetToAnEarlierTimeIsCalledThenAndNotAgainAtTheLaterOne) {
  const auto a = sleeper("a", 1020);
  a->timeMinIs(1010);
  clock->advance(Seconds(10));
  EXPECT_THAT(take(), ElementsAre("a"));
  clock->advance(Seconds(10));
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(ClockTest, ThoseDueTogetherAreCalledInOrderOfTime) {
  const auto c = sleeper("c", 1003);
  const auto a = sleeper("a", 1001);
  const auto b = sleeper("b", 1002);
  clock->nowIs(Seconds(1003));
  turn();
  EXPECT_THAT(take(), ElementsAre("a", "b", "c"));
}

TEST_F(ClockTest, OfEqualTimesTheOneSetFirstIsCalledFirst) {
  const auto c = sleeper("c", 1001);
  const auto a = sleeper("a", 1001);
  const auto b = sleeper("b", 1001);
  c->timeMinIs(1001);  // set again: now it is the last
  clock->nowIs(Seconds(1001));
  turn();
  EXPECT_THAT(take(), ElementsAre("a", "b", "c"));
}

TEST_F(ClockTest, OneThatIsDueAndDestroyedByAnotherIsNotCalled) {
  const auto a = sleeper("a", 1000);
  auto b = sleeper("b", 1000);
  const auto c = sleeper("c", 1000);
  a->onClock = [&] { b = nullptr; };
  turn();
  EXPECT_THAT(take(), ElementsAre("a", "c"));
}

TEST_F(ClockTest, OneThatIsDueAndRetiredByAnotherIsNotCalled) {
  const auto a = sleeper("a", 1000);
  const auto b = sleeper("b", 1000);
  a->onClock = [&] { b->retire(); };
  turn();
  turn();
  EXPECT_THAT(take(), ElementsAre("a"));
}

TEST_F(ClockTest, OneThatIsDueAndSetLaterByAnotherIsCalledLater) {
  const auto a = sleeper("a", 1000);
  const auto b = sleeper("b", 1000);
  a->onClock = [&] { b->timeMinIs(1010); };
  turn();
  EXPECT_THAT(take(), ElementsAre("a"));
  clock->advance(Seconds(10));
  EXPECT_THAT(take(), ElementsAre("b"));
}

TEST_F(ClockTest, OneSetToNowByAnotherIsCalledAtTheNextPass) {
  const auto a = sleeper("a", 1000);
  const auto b = sleeper("b", 2000);
  a->onClock = [&] { b->timeMinIs(1000); };
  turn();
  EXPECT_THAT(take(), ElementsAre("a"));
  turn();
  EXPECT_THAT(take(), ElementsAre("b"));
}

TEST_F(ClockTest, AMachineMayBeDroppedByItsOwnHandler) {
  auto a = sleeper("a", 1000);
  const auto b = sleeper("b", 1000);
  a->onClock = [&] { a = nullptr; };
  turn();
  EXPECT_THAT(take(), ElementsAre("a", "b"));
}

TEST_F(ClockTest, AnExceptionKeepsNoOtherFromBeingWoken) {
  const auto a = sleeper("a", 1000);
  const auto b = sleeper("b", 1000);
  const auto c = sleeper("c", 1000);
  a->onClock = [] { throw Exception("a fails"); };
  EXPECT_THROW(turn(), Exception);
  EXPECT_THAT(take(), ElementsAre("a", "b", "c"));
  turn();
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(ClockTest, OneLeftOverByATiredPassMayBeSetAgainOrDestroyed) {
  const auto a = sleeper("a", 1000);
  const auto b = sleeper("b", 1000);
  auto c = sleeper("c", 1000);
  const auto d = sleeper("d", 1000);
  clock->pass([] { return true; });
  ASSERT_THAT(take(), ElementsAre("a"));
  b->timeMinIs(1005);
  c = nullptr;
  clock->advance(Seconds(0));
  EXPECT_THAT(take(), ElementsAre("d"));
  clock->advance(Seconds(5));
  EXPECT_THAT(take(), ElementsAre("b"));
}

TEST_F(ClockTest, AWakeUpThatComesWhileNotificationIsOffIsDropped) {
  const auto a = sleeper("a", 1010);
  a->hasNotificationActiveIs(false);
  clock->advance(Seconds(10));
  a->hasNotificationActiveIs(true);
  clock->advance(Seconds(10));
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(ClockTest, AWakeUpSetWhileNotificationIsOffFiresOnceItIsOn) {
  const auto a = make<Sleeper>("a", log, clock);
  a->hasNotificationActiveIs(false);
  a->timeMinIs(1010);
  a->hasNotificationActiveIs(true);
  clock->advance(Seconds(10));
  EXPECT_THAT(take(), ElementsAre("a"));
}

TEST_F(ClockTest, AClockMarkedForDeletionCallsNobody) {
  const auto a = sleeper("a", 1000);
  clock->deletionMarkIs(true);
  turn();
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(ClockTest, AMachineMayEndWithItsWakeUpSet) {
  auto a = sleeper("a", 1010);
  a = nullptr;
  EXPECT_EQ(clock->nextWakeUpTime(), Seconds::infinity());
  clock->advance(Seconds(10));
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(ClockTest, AReactorMayEndBeforeItsMachine) {
  const auto waker = make<Waker>(clock);
  waker->drop();
  EXPECT_EQ(clock->nextWakeUpTime(), Seconds::infinity());
  turn();
}

TEST_F(ClockTest, AReactorKeepsItsClockAlive) {
  auto other = make<ManualClock>();
  auto* const watched = other.get();
  auto a = make<Sleeper>("a", log, other);
  other = nullptr;
  EXPECT_EQ(watched->references(), 1U);
  EXPECT_EQ(watched->nextWakeUpTime(), Seconds(0));
}

TEST_F(ClockTest, TenThousandInRandomOrderFireInOrder) {
  constexpr int count = 10'000;
  std::vector<double> times(count);
  std::iota(times.begin(), times.end(), 1001.0);
  std::mt19937 random(42);
  std::shuffle(times.begin(), times.end(), random);
  std::vector<Ptr<Sleeper>> sleepers;
  std::vector<double> fired;
  for (const double time : times) {
    const auto& made = sleepers.emplace_back(sleeper("", 2e6 - time));
    made->onClock = [&fired, time] { fired.push_back(time); };
  }
  // Every tenth ends and the rest gets its time later, so that the heap's middle changes too.
  std::vector<double> expected;
  for (size_t i = 0; i < sleepers.size(); ++i) {
    if (i % 10 == 0) {
      sleepers[i] = nullptr;
    } else {
      sleepers[i]->timeMinIs(times[i]);
      expected.push_back(times[i]);
    }
  }
  std::sort(expected.begin(), expected.end());
  clock->nowIs(Seconds(1e6));
  turn();
  EXPECT_EQ(fired, expected);
}

TEST_F(ClockTest, ATiredPassLeavesTheRestToTheNext) {
  const auto a = sleeper("a", 1000);
  const auto b = sleeper("b", 1000);
  clock->pass([] { return true; });
  EXPECT_THAT(take(), ElementsAre("a"));
  clock->pass([] { return true; });
  EXPECT_THAT(take(), ElementsAre("b"));
}

TEST_F(ClockTest, ThoseLeftOverComeBeforeThoseThatBecameDueSince) {
  const auto a = sleeper("a", 999);
  const auto b = sleeper("b", 1000);
  clock->pass([] { return true; });
  const auto c = sleeper("c", 3);
  const auto d = sleeper("d", 2);
  clock->pass([] { return false; });
  EXPECT_THAT(take(), ElementsAre("a", "b", "d", "c"));
}

TEST_F(ClockTest, WhatATiredPassLeftIsDueAtOnce) {
  const auto a = sleeper("a", 999);
  const auto b = sleeper("b", 1000);
  clock->pass([] { return true; });
  EXPECT_EQ(clock->untilNextPass(), Seconds(0));
}

TEST_F(ClockTest, OnceAllThatATiredPassLeftHaveEndedNothingIsDue) {
  const auto a = sleeper("a", 999);
  auto b = sleeper("b", 1000);
  auto c = sleeper("c", 1000);
  clock->pass([] { return true; });
  b = nullptr;
  EXPECT_EQ(clock->nextWakeUpTime(), Seconds(0));  // c is left
  c = nullptr;
  EXPECT_EQ(clock->nextWakeUpTime(), Seconds::infinity());
}

TEST(SteadyClockTest, WithoutAWakeUpTheNextPassIsNever) {
  EXPECT_EQ(make<SteadyClock>()->untilNextPass(), Seconds::infinity());
}

TEST(SteadyClockTest, TheNextPassIsAtTheNearestWakeUp) {
  const auto clock = make<SteadyClock>();
  Log log;
  const auto a = make<Sleeper>("a", log, clock);
  EXPECT_EQ(clock->untilNextPass(), Seconds(0));  // a new one is due
  const auto b = make<Sleeper>("b", log, clock);
  const Seconds start = clock->now();
  a->timeMinIs(start + Seconds(200));
  b->timeMinIs(start + Seconds(100));
  const Seconds left = clock->untilNextPass();
  EXPECT_LE(left, Seconds(100));
  EXPECT_GE(clock->now() + left, start + Seconds(100));
}

}  // namespace
}  // namespace rt
