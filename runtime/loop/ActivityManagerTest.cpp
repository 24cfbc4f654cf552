#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <memory>

#include "runtime/fakes/LoopFixture.h"
#include "runtime/loop/ActivityManager.h"

namespace rt {
namespace {

using fakes::Closer;
using fakes::Listener;
using fakes::Log;
using fakes::pipeEnds;
using fakes::readAll;
using fakes::Sleeper;
using fakes::write;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// More descriptors than the loop looks at in one go.
constexpr int many = 100;

class ActivityManagerTest : public fakes::LoopTest {
 protected:
  // `many` machines "d", each of which reads its pipe when it is told.
  void readersAre() {
    for (int i = 0; i < many; ++i) {
      const auto [own, peer] = pipeEnds();
      auto& made = readers_.emplace_back(reader("d", own));
      made->onReadable = [number = own] { readAll(number); };
      ends_.push_back(std::make_unique<Closer>(peer));
    }
  }
  void allReadable() {
    for (const auto& end : ends_) write(*end, "x");
  }
  std::vector<Ptr<Listener>> readers_;
  std::vector<std::unique_ptr<Closer>> ends_;
};

// The order in one turn.

TEST_F(ActivityManagerTest, DescriptorsAreToldBeforeWakeUps) {
  const auto [own, peer] = pipeEnds();
  const Closer end(peer);
  const auto timer = sleeper("timer", 900);
  const auto a = reader("a", own);
  write(peer, "x");
  turn();
  EXPECT_THAT(take(), ElementsAre("a readable", "timer"));
}

TEST_F(ActivityManagerTest, AWakeUpMadeDueByADescriptorsHandlerFiresInTheSameTurn) {
  const auto [own, peer] = pipeEnds();
  const Closer end(peer);
  const auto timer = sleeper("timer", 1010);
  const auto a = reader("a", own);
  a->onReadable = [&] { timer->timeMinIs(1000); };
  write(peer, "x");
  turn();
  EXPECT_THAT(take(), ElementsAre("a readable", "timer"));
}

// After a long turn.

TEST_F(ActivityManagerTest, MoreReadyDescriptorsThanOneWaitFindsAllComeBeforeAWakeUp) {
  readersAre();
  allReadable();
  const auto timer = sleeper("timer", 1000);
  turn();
  const Log told = take();
  ASSERT_THAT(told, SizeIs(many + 1));
  EXPECT_EQ(told.back(), "timer");
}

TEST_F(ActivityManagerTest, AHandlerThatThrowsInEveryTurnKeepsNoOtherFromBeingTold) {
  const auto [badEnd, badPeer] = pipeEnds();
  const Closer badPeerEnd(badPeer);
  const auto [goodEnd, goodPeer] = pipeEnds();
  const Closer goodPeerEnd(goodPeer);
  const auto bad = reader("bad", badEnd);
  const auto good = reader("good", goodEnd);
  bad->onReadable = [] { throw Exception("bad"); };
  good->onReadable = [] { throw Exception("good"); };
  write(badPeer, "x");
  write(goodPeer, "x");
  const auto timer = sleeper("timer", 1000);
  EXPECT_THROW(turn(), Exception);
  EXPECT_THAT(take(), ElementsAre("bad readable", "good readable", "timer"));
  EXPECT_THROW(turn(), Exception);
  EXPECT_THAT(take(), ElementsAre("bad readable", "good readable"));
}

TEST_F(ActivityManagerTest, AfterHandlersThatTookOverASecondAllDescriptorsComeBeforeAnyWakeUp) {
  readersAre();
  allReadable();
  const auto timer = sleeper("timer", 1001);
  for (const auto& each : readers_)
    each->onReadable = [&, number = each->descriptor().descriptor()] {
      readAll(number);
      clock->nowIs(Seconds(1001.5));
    };
  turn();
  const Log told = take();
  ASSERT_THAT(told, SizeIs(many + 1));
  EXPECT_EQ(told.back(), "timer");
}

TEST_F(ActivityManagerTest, WhatComesInDuringALongHandlerIsToldBeforeAnyWakeUp) {
  const auto [own, peer] = pipeEnds();
  const Closer end(peer);
  const auto timer = sleeper("timer", 1001);
  const auto slow = reader("slow", own);
  readersAre();
  slow->onReadable = [&, number = own] {
    readAll(number);
    clock->nowIs(Seconds(1001.5));
    allReadable();
  };
  write(peer, "x");
  turn();
  const Log told = take();
  ASSERT_THAT(told, SizeIs(many + 2));
  EXPECT_EQ(told.front(), "slow readable");
  EXPECT_EQ(told.back(), "timer");
}

TEST_F(ActivityManagerTest, AfterAWakeUpThatTookOverASecondTheOthersWaitForAllDescriptors) {
  readersAre();
  const auto slow = sleeper("slow", 1000);
  const auto timer = sleeper("timer", 1000);
  slow->onClock = [&] {
    clock->nowIs(Seconds(1001.5));
    allReadable();
  };
  turn();
  EXPECT_THAT(take(), ElementsAre("slow"));
  turn();
  const Log told = take();
  ASSERT_THAT(told, SizeIs(many + 1));
  EXPECT_EQ(told.back(), "timer");
}

TEST_F(ActivityManagerTest, AWakeUpThatTookASecondLetsTheOthersFireInTheSameTurn) {
  const auto slow = sleeper("slow", 1000);
  const auto timer = sleeper("timer", 1000);
  slow->onClock = [&] { clock->nowIs(Seconds(1001)); };
  turn();
  EXPECT_THAT(take(), ElementsAre("slow", "timer"));
}

TEST_F(ActivityManagerTest, ADescriptorThatIsNeverReadDoesNotHangALongTurn) {
  const auto [own, peer] = pipeEnds();
  const Closer end(peer);
  const auto timer = sleeper("timer", 1001);
  const auto deaf = reader("deaf", own);
  deaf->onReadable = [&] { clock->nowIs(Seconds(1001.5)); };
  write(peer, "x");
  turn();
  Log told = take();
  ASSERT_THAT(told, testing::Not(IsEmpty()));
  EXPECT_EQ(told.back(), "timer");
  told.pop_back();
  EXPECT_THAT(told, Each("deaf readable"));
}

// Turning.

TEST_F(ActivityManagerTest, AFailedHandlerLeavesTheLoopUsable) {
  const auto [own, peer] = pipeEnds();
  const Closer end(peer);
  const auto a = reader("a", own);
  a->onReadable = [] { throw Exception("a handler fails"); };
  write(peer, "x");
  EXPECT_THROW(turn(), Exception);
  a->onReadable = [number = own] { readAll(number); };
  turn();
  EXPECT_THAT(take(), ElementsAre("a readable", "a readable"));
}

TEST_F(ActivityManagerTest, ATurnEndsWhenItsTimeIsOverThoughNothingIsReady) {
  const auto [own, peer] = pipeEnds();
  const Closer end(peer);
  const auto a = reader("a", own);
  manager.turn(Seconds(0.001));
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(ActivityManagerTest, ATurnWithoutATimeDoesNotWaitWhenAWakeUpIsDue) {
  const auto timer = sleeper("timer", 1000);
  manager.turn();
  EXPECT_THAT(take(), ElementsAre("timer"));
}

TEST_F(ActivityManagerTest, RunsUntilAHandlerStopsIt) {
  const auto timer = sleeper("timer", 1000);
  int calls = 0;
  timer->onClock = [&] {
    if (++calls == 3)
      manager.stop();
    else
      timer->timeMinIs(1000);
  };
  manager.run();
  EXPECT_EQ(calls, 3);
}

TEST_F(ActivityManagerTest, RunsAgainOnceItWasStopped) {
  const auto timer = sleeper("timer", 1000);
  timer->onClock = [&] { manager.stop(); };
  manager.run();
  timer->timeMinIs(1000);
  manager.run();
  EXPECT_THAT(take(), ElementsAre("timer", "timer"));
}

TEST_F(ActivityManagerTest, AnExceptionEndsTheRunAndASecondOneGoesOn) {
  const auto a = sleeper("a", 1000);
  bool failed = false;
  a->onClock = [&] {
    if (std::exchange(failed, true)) return manager.stop();
    a->timeMinIs(1000);
    throw Exception("a handler fails");
  };
  EXPECT_THROW(manager.run(), Exception);
  manager.run();
  EXPECT_THAT(take(), ElementsAre("a", "a"));
}

// A turn that ends early would be followed by others, so one turn means one wake-up.
TEST(IdleLoopTest, SleepsOnceUntilItsNextWakeUp) {
  const auto clock = make<SteadyClock>();
  ActivityManager manager(clock);
  Log log;
  const auto [own, peer] = pipeEnds();
  const Closer end(peer);
  const auto idle = make<Listener>("idle", log);
  idle->descriptor().descriptorIs(own);
  idle->descriptor().notifyOnReadableIs(true);
  const auto timer = make<Sleeper>("timer", log, clock);
  timer->timeMinIs(clock->now() + Seconds(1));
  rusage before{};
  rusage after{};
  ASSERT_EQ(getrusage(RUSAGE_THREAD, &before), 0);
  manager.turn();
  ASSERT_EQ(getrusage(RUSAGE_THREAD, &after), 0);
  EXPECT_THAT(log, ElementsAre("timer"));
  EXPECT_LE(after.ru_nvcsw - before.ru_nvcsw, 2);
}

// The one of the process.

TEST_F(ActivityManagerTest, IsTheProcesssOwn) {
  EXPECT_EQ(&activityManager(), &manager);
  EXPECT_EQ(&activityLock(), &manager.lock());
}

TEST_F(ActivityManagerTest, TheCurrentTimeIsThatOfItsClock) {
  EXPECT_EQ(manager.clock(), clock);
  clock->nowIs(Seconds(1234.5));
  EXPECT_EQ(currentTime(), Seconds(1234.5));
}

TEST(ActivityManagersTest, OneMayFollowAnother) {
  { const ActivityManager first; }
  const ActivityManager second;
  EXPECT_EQ(&activityManager(), &second);
}

TEST(ActivityManagersDeathTest, ThereIsOneAtATime) {
  EXPECT_DEATH(
      {
        const ActivityManager first;
        const ActivityManager second;
      },
      ": assertion failed: there is an activity manager already\n");
}

TEST(ActivityManagersDeathTest, ThereMustBeOne) {
  EXPECT_DEATH(activityManager(), ": assertion failed: there is no activity manager\n");
}

using ActivityManagerDeathTest = ActivityManagerTest;

TEST_F(ActivityManagerDeathTest, AHandlerMustNotTurnTheLoop) {
  const auto a = sleeper("a", 1000);
  a->onClock = [&] { turn(); };
  EXPECT_DEATH(turn(), "assertion failed: a handler runs the loop that called it\n");
}

}  // namespace
}  // namespace rt
