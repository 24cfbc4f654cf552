#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/fakes/ChangeRecorder.h"
#include "runtime/fakes/LoopFixture.h"
#include "runtime/fakes/TraceRecorder.h"
#include "runtime/records/VmConfig.h"

namespace rt::fakes {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using ManualClockTest = LoopTest;

TEST_F(ManualClockTest, StandsStillUntilItIsMoved) {
  EXPECT_EQ(clock->now(), Seconds(1000));
  turn();
  EXPECT_EQ(clock->now(), Seconds(1000));
}

TEST_F(ManualClockTest, MovedItCallsNobodyByItself) {
  const auto a = sleeper("a", 1010);
  clock->nowIs(Seconds(1020));
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(ManualClockTest, AdvancingStopsAtEachWakeUpOnTheWay) {
  std::vector<double> times;
  const auto a = sleeper("a", 1001);
  const auto b = sleeper("b", 1002.5);
  a->onClock = b->onClock = [&] { times.push_back(clock->now().value()); };
  clock->advance(Seconds(10));
  EXPECT_THAT(times, ElementsAre(1001, 1002.5));
  EXPECT_EQ(clock->now(), Seconds(1010));
}

TEST_F(ManualClockTest, AdvancingByNothingCallsWhatIsDueNow) {
  const auto a = sleeper("a", 1000);
  clock->advance(Seconds(0));
  EXPECT_THAT(take(), ElementsAre("a"));
}

TEST_F(ManualClockTest, ALoopNeverSleepsForAWakeUpThatIsAhead) {
  const auto a = sleeper("a", 1000.001);
  EXPECT_EQ(clock->untilNextPass(), Seconds::infinity());
  EXPECT_EQ(clock->nextWakeUpTime(), Seconds(1000.001));
}

TEST(ChangeRecorderTest, NotesScalarsWithTheirValueAndMembersWithTheirKey) {
  const auto config = make<Vm::Config>();
  const auto recorder = make<ChangeRecorder>();
  recorder->watch(config);
  recorder->watch(config->vmConfigIs("web1"));
  config->vmConfig("web1")->memoryIs(256);
  EXPECT_THAT(recorder->take(),
              ElementsAre("Vm::Config.vmConfig[web1]", "Vm::VmConfig.memory = 256"));
  EXPECT_THAT(recorder->take(), IsEmpty());
}

TEST(TraceRecorderTest, NotesAllLevelsForItsLifetime) {
  const TraceLevels before = vmTrace().levels();
  {
    TraceRecorder traces;
    VM_TRACE(9) << "much";
    VM_TRACE(1) << "bad";
    EXPECT_THAT(traces.take(), ElementsAre("9 much", "1 bad"));
  }
  EXPECT_EQ(vmTrace().levels(), before);
  EXPECT_EQ(traceSink(), nullptr);
}

TEST(TraceRecorderTest, GivesOneLevelsMessagesAndForgetsTheOthers) {
  TraceRecorder traces;
  VM_TRACE(9) << "much";
  VM_TRACE(1) << "bad";
  EXPECT_THAT(traces.take(1), ElementsAre("bad"));
  EXPECT_THAT(traces.take(), IsEmpty());
}

}  // namespace
}  // namespace rt::fakes
