// The VM set's heartbeat.
#include "Vm/VmAgent/fakes/AgentFixture.h"

namespace Vm {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* clockTrace = "8 void Vm::VmSm::handleClock() initialized ? true";
constexpr const char* activityTrace = "8 void Vm::VmSm::doMonitorActivity() initialized ? true";
constexpr const char* exitTrace = "8 doMonitorActivity: exiting";

class VmSmHeartbeat : public AgentFixture {
 protected:
  // What the set itself said.
  Lines beats() {
    Lines lines;
    for (const auto& line : said())
      if (line.find("Vm::VmSm::") != std::string::npos || line == exitTrace) lines.push_back(line);
    return lines;
  }
};

TEST_F(VmSmHeartbeat, BeginsWithTheFirstTurnAndBeatsEveryFiveSeconds) {
  addVm("web1");
  start();
  forget();
  turn();
  EXPECT_THAT(beats(), ElementsAre(clockTrace, activityTrace));
  advance(4.99);
  EXPECT_THAT(beats(), IsEmpty());
  advance(0.01);
  EXPECT_THAT(beats(), ElementsAre(clockTrace, activityTrace));
  advance(15);
  EXPECT_EQ(beats().size(), 6u);
}

TEST_F(VmSmHeartbeat, ExitsOnceWithoutAVm) {
  start();
  forget();
  advance(60);
  EXPECT_THAT(beats(), ElementsAre(clockTrace, activityTrace, exitTrace));
}

TEST_F(VmSmHeartbeat, ExitsAtTheBeatAfterTheLastVmWent) {
  addVm("web1");
  start();
  turn();
  config->vmConfigDel("web1");
  forget();
  advance(60);
  EXPECT_THAT(beats(), ElementsAre(clockTrace, activityTrace, exitTrace));
}

TEST_F(VmSmHeartbeat, IsNotSetAgainByAVmThatComesLater) {
  start();
  turn();
  addVm("web1");
  forget();
  advance(60);
  EXPECT_THAT(beats(), IsEmpty());
}

TEST_F(VmSmHeartbeat, GoesOnWhenAVmCameBeforeItWouldHaveExited) {
  addVm("web1");
  start();
  turn();
  config->vmConfigDel("web1");
  addVm("web2");
  forget();
  advance(10);
  EXPECT_THAT(beats(), ElementsAre(clockTrace, activityTrace, clockTrace, activityTrace));
}

TEST_F(VmSmHeartbeat, MonitorsARunningVmWithoutTheSet) {
  start();
  turn();  // the heartbeat exits
  addRunning("web1");
  advance(5);
  EXPECT_EQ(processes.monitor("web1").takeTexts().size(), 1u);
}

TEST_F(VmSmHeartbeat, BeatsOnTheClockThatTheSetWasGiven) {
  addVm("web1");
  const auto ownClock = rt::make<rt::fakes::ManualClock>();
  const auto set =
      rt::make<VmSm>(config, status, deviceIntfStatusDir, bridging, allIntfStatusDir, ownClock);
  turn();
  EXPECT_THAT(withText(said(), "VmSm::handleClock"), IsEmpty());
  ownClock->pass([] { return false; });
  EXPECT_THAT(withText(said(), "VmSm::handleClock"), ElementsAre(clockTrace));
}

}  // namespace

}  // namespace Vm
