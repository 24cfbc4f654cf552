// Traces on their way out, and what they say of a VM's change.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "host/base/TraceLog.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr rt::TraceLevels level1 = 1U << 1;
constexpr rt::TraceLevels level2 = 1U << 2;

class TraceLogTest : public testing::Test {
 protected:
  TraceLog::Output output() {
    return [this](const rt::TraceRecord& record, const rt::String& vm) {
      shown.push_back(std::to_string(record.level) + " " + std::string(record.message) +
                      (vm.empty() ? "" : " of " + vm.str()));
    };
  }

  std::vector<std::string> shown;
};

TEST_F(TraceLogTest, ShowsTheLevelsThatAreAskedFor) {
  const TraceLog log(level1 | level2, output());
  VM_TRACE(1) << "one";
  VM_TRACE(2) << "two";
  VM_TRACE(3) << "three";
  EXPECT_THAT(shown, ElementsAre("1 one", "2 two"));
}

TEST_F(TraceLogTest, HearsWhatFailedAlsoWhenNobodyWantsToSeeIt) {
  TraceLog log(level2, output());
  const TraceLog::Change change(log, "web1");
  VM_TRACE(1) << "FAIL: no monitor";
  EXPECT_EQ(change.failure(), "FAIL: no monitor");
  EXPECT_THAT(shown, IsEmpty());
}

TEST_F(TraceLogTest, SaysWhoseChangeAMessageIsOf) {
  TraceLog log(level1 | level2, output());
  VM_TRACE(2) << "before";
  {
    const TraceLog::Change change(log, "web1");
    VM_TRACE(2) << "during";
  }
  VM_TRACE(2) << "after";
  EXPECT_THAT(shown, ElementsAre("2 before", "2 during of web1", "2 after"));
}

TEST_F(TraceLogTest, RemembersTheLastFailureOfAChange) {
  TraceLog log(level1, output());
  VM_TRACE(1) << "before";
  const TraceLog::Change change(log, "web1");
  EXPECT_EQ(change.failure(), "");
  VM_TRACE(1) << "first";
  VM_TRACE(1) << "second";
  VM_TRACE(2) << "no failure";
  EXPECT_EQ(change.failure(), "second");
}

TEST_F(TraceLogTest, KeepsTheFailuresOfTwoChangesApart) {
  TraceLog log(level1, output());
  {
    const TraceLog::Change first(log, "web1");
    VM_TRACE(1) << "of the first";
  }
  VM_TRACE(1) << "of none";
  const TraceLog::Change second(log, "web2");
  EXPECT_EQ(second.failure(), "");
}

TEST_F(TraceLogTest, TakesNothingOfAnotherThreadForAFailureOfTheChange) {
  TraceLog log(level1, output());
  const TraceLog::Change change(log, "web1");
  std::thread([] { VM_TRACE(1) << "of another"; }).join();
  EXPECT_EQ(change.failure(), "");
  EXPECT_THAT(shown, ElementsAre("1 of another"));
}

TEST_F(TraceLogTest, TakesMessagesOfManyThreadsAtATime) {
  const TraceLog log(level2, output());
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([] {
      for (int n = 0; n < 100; ++n) VM_TRACE(2) << "hello";
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(shown.size(), 400U);
}

TEST_F(TraceLogTest, IsTheSinkWhileItLives) {
  EXPECT_EQ(rt::traceSink(), nullptr);
  {
    const TraceLog log(level1, output());
    EXPECT_EQ(rt::traceSink(), &log);
  }
  EXPECT_EQ(rt::traceSink(), nullptr);
}

}  // namespace
}  // namespace host
