// Traces on their way out, and what they say of a VM's change.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <thread>
#include <utility>
#include <vector>

#include "host/base/TraceLog.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr rt::TraceLevels level1 = 1U << 1;
constexpr rt::TraceLevels level2 = 1U << 2;
constexpr rt::TraceLevels level7 = 1U << 7;

class TraceLogTest : public testing::Test {
 protected:
  TraceRoad road() {
    return {.text =
                [](const rt::TraceRecord& record, const rt::String& vm) {
                  return std::to_string(record.level) + " " + std::string(record.message) +
                         (vm.empty() ? "" : " of " + vm.str());
                },
            .send =
                [this](std::string_view text) {
                  errno = ENOSPC;
                  if (hasRoom) shown.emplace_back(text);
                  return hasRoom;
                }};
  }
  TraceLog::Now clock() {
    return [this] { return rt::Seconds(now); };
  }
  std::vector<std::string> take() { return std::exchange(shown, {}); }

  std::vector<std::string> shown;
  bool hasRoom = true;
  double now = 1000;
};

TEST_F(TraceLogTest, ShowsTheLevelsThatAreAskedFor) {
  const TraceLog log(level1 | level2, road());
  VM_TRACE(1) << "one";
  VM_TRACE(2) << "two";
  VM_TRACE(3) << "three";
  EXPECT_THAT(shown, ElementsAre("1 one", "2 two"));
}

TEST_F(TraceLogTest, HearsWhatFailedAlsoWhenNobodyWantsToSeeIt) {
  TraceLog log(level2, road());
  const TraceLog::Change change(log, "web1");
  VM_TRACE(1) << "FAIL: no monitor";
  EXPECT_EQ(change.failure(), "FAIL: no monitor");
  EXPECT_THAT(shown, IsEmpty());
}

TEST_F(TraceLogTest, SaysWhoseChangeAMessageIsOf) {
  TraceLog log(level1 | level2, road());
  VM_TRACE(2) << "before";
  {
    const TraceLog::Change change(log, "web1");
    VM_TRACE(2) << "during";
  }
  VM_TRACE(2) << "after";
  EXPECT_THAT(shown, ElementsAre("2 before", "2 during of web1", "2 after"));
}

TEST_F(TraceLogTest, RemembersTheLastFailureOfAChange) {
  TraceLog log(level1, road());
  VM_TRACE(1) << "before";
  const TraceLog::Change change(log, "web1");
  EXPECT_EQ(change.failure(), "");
  VM_TRACE(1) << "first";
  VM_TRACE(1) << "second";
  VM_TRACE(2) << "no failure";
  EXPECT_EQ(change.failure(), "second");
}

TEST_F(TraceLogTest, KeepsTheFailuresOfTwoChangesApart) {
  TraceLog log(level1, road());
  {
    const TraceLog::Change first(log, "web1");
    VM_TRACE(1) << "of the first";
  }
  VM_TRACE(1) << "of none";
  const TraceLog::Change second(log, "web2");
  EXPECT_EQ(second.failure(), "");
}

TEST_F(TraceLogTest, TakesNothingOfAnotherThreadForAFailureOfTheChange) {
  TraceLog log(level1, road());
  const TraceLog::Change change(log, "web1");
  std::thread([] { VM_TRACE(1) << "of another"; }).join();
  EXPECT_EQ(change.failure(), "");
  EXPECT_THAT(shown, ElementsAre("1 of another"));
}

TEST_F(TraceLogTest, TakesMessagesOfManyThreadsAtATime) {
  const TraceLog log(level2 | level7, road());
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([] {
      for (int n = 0; n < 100; ++n) VM_TRACE(7) << "hello";
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(shown.size(), 400U);
}

TEST_F(TraceLogTest, CountsWhatComesAgainAndSaysSoOnceAMinute) {
  const TraceLog log(level1 | level2, road(), clock());
  for (; now < 1121; now += 5) {
    VM_TRACE(2) << "read error";
    if (now == 1050) VM_TRACE(1) << "FAIL";
  }
  EXPECT_THAT(take(), ElementsAre("2 read error", "1 FAIL", "2 read error (12 times in 60 s)",
                                  "2 read error (12 times in 60 s)"));
}

TEST_F(TraceLogTest, SaysInAPassHowOftenItWasWhatComesNoMore) {
  TraceLog log(level2, road(), clock());
  {
    const TraceLog::Change change(log, "web1");
    for (int i = 0; i < 3; ++i) VM_TRACE(2) << "read error";
  }
  log.pass();
  EXPECT_THAT(take(), ElementsAre("2 read error of web1"));
  now += 60;
  log.pass();
  EXPECT_THAT(take(), ElementsAre("2 read error (2 times in 60 s) of web1"));
}

TEST_F(TraceLogTest, ShowsEveryMessageToWhoAsksForMoreLevels) {
  const TraceLog log(level2 | level7, road(), clock());
  for (int i = 0; i < 2; ++i) VM_TRACE(2) << "read error";
  EXPECT_THAT(take(), ElementsAre("2 read error", "2 read error"));
}

TEST_F(TraceLogTest, KeepsForAWhileWhatFindsNoRoom) {
  TraceLog log(level1, road(), clock());
  hasRoom = false;
  VM_TRACE(1) << "a";
  VM_TRACE(1) << "b";
  EXPECT_FALSE(log.pass());
  hasRoom = true;
  VM_TRACE(1) << "c";
  EXPECT_THAT(take(), ElementsAre("1 a", "1 b", "1 c"));
  EXPECT_TRUE(log.pass());
}

TEST_F(TraceLogTest, SaysHowManyWereLostForWhichThereWasNoRoomAtAll) {
  TraceLog log(level1, road(), clock());
  const std::string half(TraceLog::mostWaiting / 2 - 2, 'x');
  hasRoom = false;
  for (int i = 0; i < 5; ++i) VM_TRACE(1) << half;
  EXPECT_FALSE(log.pass());
  hasRoom = true;
  EXPECT_TRUE(log.pass());
  EXPECT_THAT(take(), ElementsAre("1 " + half, "1 " + half,
                                  "1 vmagentd: 3 messages were lost here: nobody read them"));
  VM_TRACE(1) << "after";
  EXPECT_TRUE(log.pass());
  EXPECT_THAT(take(), ElementsAre("1 after"));
}

TEST_F(TraceLogTest, LeavesTheErrorOfACallAsItWas) {
  const TraceLog log(level1, road(), clock());
  errno = EAGAIN;
  VM_TRACE(1) << "a";
  EXPECT_EQ(errno, EAGAIN);
}

TEST_F(TraceLogTest, IsTheSinkWhileItLives) {
  EXPECT_EQ(rt::traceSink(), nullptr);
  {
    const TraceLog log(level1, road());
    EXPECT_EQ(rt::traceSink(), &log);
  }
  EXPECT_EQ(rt::traceSink(), nullptr);
}

}  // namespace
}  // namespace host
