// What a VM's machine does as its monitor session connects and disconnects.
#include "Vm/VmAgent/fakes/NicWorld.h"

namespace Vm::fakes {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

using State = MonitorStatus::MonitorState;

class MonitorState : public NicTest {};
class MonitorStateDeathTest : public testing::Test {};

TEST_F(MonitorState, ConnectedWhileStartingLetsTheGuestRun) {
  EXPECT_THAT(run(), ElementsAre(capabilitiesRequest, statusRequest, chardevRequest, contRequest));
}

TEST_F(MonitorState, ConnectedWhileStartingAttachesEveryCardBeforeTheGuestRuns) {
  addCard("nic00");
  addCard("nic01", "Vlan200", secondMac);
  connectVlan100();
  interfaceIs("Vlan200", 8);
  const Texts asked = run();
  ASSERT_EQ(asked.size(), 12U);
  EXPECT_EQ(asked[3], attachRequests[0]);
  EXPECT_THAT(asked[7], testing::HasSubstr("fd-hostnet1"));
  EXPECT_EQ(asked[11], contRequest);
  EXPECT_EQ(card("net0")->status(), Vnic::linkUp);
  EXPECT_EQ(card("net1")->status(), Vnic::linkUp);
}

TEST_F(MonitorState, ConnectedIsTracedWithTheVmsState) {
  enable();
  forget();
  connectMonitor();
  EXPECT_THAT(traces.take(8),
              testing::IsSupersetOf({"void Vm::VmConfigSm::handleMonitorStatus() for web1 monitor "
                                     "state connected Vm state Starting",
                                     "handleMonitorStatus monitor connected, starting VM "}));
}

TEST_F(MonitorState, ConnectedBeginsThePolling) {
  enable();
  connectMonitor();
  EXPECT_THAT(traces.take(9), Contains("void Vm::VmConfigSm::doScheduleMonitoring() for web1"));
}

TEST_F(MonitorState, ConnectedWhenNotStartingAttachesNothingAndSendsNoCont) {
  addCard();
  connectVlan100();
  enable();
  status()->stateIs("Stopped");
  EXPECT_THAT(converse(), ElementsAre(capabilitiesRequest, statusRequest, chardevRequest));
  EXPECT_EQ(card()->status(), Vnic::linkUninitialized);
  EXPECT_THAT(kernel.macvtaps(), ElementsAre());
}

TEST_F(MonitorState, ConnectedWhenNotStartingBeginsThePollingToo) {
  enable();
  status()->stateIs("Stopped");
  converse();
  advance(5);
  EXPECT_THAT(converse(), ElementsAre(statusRequest));
}

TEST_F(MonitorState, ConnectedWithoutAProcessDoesNothing) {
  addCard();
  connectVlan100();
  enable();
  processes.end(1000);
  turn();
  status()->stateIs("Starting");
  forget();
  connectMonitor();
  EXPECT_THAT(traces.take(9), Not(Contains(testing::HasSubstr("doScheduleMonitoring"))));
  EXPECT_EQ(vm()->monitorInput()->cmd(), MonitorCommand::queryChardev);  // the session's own
  EXPECT_THAT(effects.take(), ElementsAre());
}

TEST_F(MonitorState, UninitializedDoesNothing) {
  run();
  locked([&] { vm()->monitorStatus()->stateIs(State::uninitialized); });
  EXPECT_THAT(traces.take(), ElementsAre("8 void Vm::VmConfigSm::handleMonitorStatus() for web1 "
                                         "monitor state uninitialized Vm state Running"));
  EXPECT_TRUE(vm()->monSm());
}

TEST_F(MonitorState, DisconnectedFromALivingGuestConnectsAnew) {
  run();
  qemu().close();
  turn();
  EXPECT_EQ(processes.connections("web1"), 2U);
  EXPECT_THAT(effects.take(), ElementsAre("connect /var/run/web1.monitor"));
  EXPECT_THAT(failures(), ElementsAre());
  EXPECT_TRUE(hasProcess());
}

TEST_F(MonitorState, AReconnectedSessionLeavesGuestAndCardsAsTheyAre) {
  addCard();
  connectVlan100();
  run();
  qemu().close();
  turn();
  EXPECT_THAT(converse(), ElementsAre(capabilitiesRequest, statusRequest, chardevRequest));
  EXPECT_EQ(card()->status(), Vnic::linkUp);
  EXPECT_THAT(kernel.macvtaps(), ElementsAre("macvtap0"));
}

TEST_F(MonitorState, AReconnectedSessionIsPolled) {
  run();
  qemu().close();
  turn();
  converse();
  advance(5);
  EXPECT_THAT(converse(), ElementsAre(statusRequest));
}

TEST_F(MonitorState, AFailedReconnectStopsTheGuest) {
  run();
  processes.refusalsAre("web1", -1);
  qemu().close();
  turn();
  EXPECT_THAT(failures(),
              ElementsAre("connectMonitor FAIL: cannot connect to /var/run/web1.monitor",
                          "setupMonitor FAIL: cannot connect to qemu monitor ",
                          "handleMonitorStatus FAIL: cannot reconnect to monitor "));
  EXPECT_THAT(effects.take(), ElementsAre("kill 1000 15"));
  EXPECT_EQ(status()->consolePtyPath(), "");
  EXPECT_FALSE(vm()->monSm());
}

TEST_F(MonitorState, AReconnectTakesFiftyTwoAttemptsAtMost) {
  run();
  processes.refusalsAre("web1", -1);
  qemu().close();
  turn();
  EXPECT_EQ(processes.connectAttempts("web1"), 53);  // the first session's and these
  EXPECT_EQ(processes.pauses, std::vector<uint64_t>(51, 200'000));
}

TEST_F(MonitorState, DisconnectedFromAnEndedGuestForgetsItsConsole) {
  run();
  ASSERT_EQ(status()->consolePtyPath(), "pty:/dev/pts/3");
  processes.end(1000);
  turn();
  ASSERT_EQ(status()->consolePtyPath(), "pty:/dev/pts/3");
  forget();
  qemu().close();
  turn();
  EXPECT_THAT(traces.take(8), Contains("handleMonitorStatus qemu process has disappeared "));
  EXPECT_EQ(status()->consolePtyPath(), "");
  EXPECT_EQ(processes.connections("web1"), 1U);
  EXPECT_FALSE(vm()->monSm());
}

TEST_F(MonitorState, CardsOfAGuestThatEndedStayUntilTheVmIsDisabled) {
  addCard();
  connectVlan100();
  run();
  qemu().close();
  processes.end(1000);
  turn();
  EXPECT_EQ(status()->state(), "Stopped");
  EXPECT_EQ(card()->status(), Vnic::linkUp);
  EXPECT_EQ(kernel.openTaps(), 1U);
  EXPECT_THAT(kernel.macvtaps(), ElementsAre("macvtap0"));
  EXPECT_EQ(configuredHosts().size(), 1U);
  disable();
  EXPECT_EQ(vm()->vnics().size(), 0U);
  EXPECT_EQ(kernel.openTaps(), 0U);
  EXPECT_THAT(kernel.macvtaps(), ElementsAre());
  EXPECT_EQ(configuredHosts().size(), 0U);
}

// The session is lost before the guest's first run state came in, and every card is set up again.
TEST_F(MonitorStateDeathTest, AReconnectWhileStartingFindsACardAttached) {
  EXPECT_DEATH(
      {
        NicWorld world;
        world.addCard();
        world.connectVlan100();
        world.enable();
        world.connectMonitor();
        world.qemu().close();
        world.turn();
        world.connectMonitor();
      },
      "assertion failed: \\( int \\)vnic->macvtapFd\\(\\) == -1\n");
}

}  // namespace

}  // namespace Vm::fakes
