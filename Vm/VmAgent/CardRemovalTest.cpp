// What becomes of cards when their VM is switched off or removed.
#include "Vm/VmAgent/fakes/NicWorld.h"

namespace Vm::fakes {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class CardRemoval : public NicTest {
 protected:
  void runWithTwoCards() {
    addCard("nic00");
    addCard("nic01", "Vlan100", secondMac);
    connectVlan100();
    run();
  }
};

TEST_F(CardRemoval, TakesMacEntryDeviceAndCardInTurnThenMonitorThenProcess) {
  runWithTwoCards();
  recorder->watch(bridging->fdbConfig(Bridging::VlanId(100)));
  recorder->watch(bridging);
  recorder->watch(vm());
  recorder->watch(status());
  effects.take();
  disable();
  EXPECT_THAT(effects.take(),
              ElementsAre("FdbConfig.configuredHost[52:54:00:12:34:56]", "link del macvtap0",
                          "VmConfigSm.vnic[net0]", "close /dev/tap501",
                          "FdbConfig.configuredHost[52:54:00:12:34:57]", "Config.fdbConfig[100]",
                          "link del macvtap1", "VmConfigSm.vnic[net1]", "close /dev/tap502",
                          "VmConfigSm.monitorOutput", "VmConfigSm.monitorStatus",
                          "VmConfigSm.monSm", "VmConfigSm.monFd", "kill 1000 15",
                          "VmStatus.consolePtyPath = ", "VmStatus.enabled = false"));
}

TEST_F(CardRemoval, AsksQemuForNothing) {
  runWithTwoCards();
  locked([&] { web1->enabledIs(false); });
  EXPECT_THAT(qemu().takeTexts(), IsEmpty());
}

TEST_F(CardRemoval, DeletesADeviceWithoutANameToo) {
  addCard();
  run();
  disable();
  EXPECT_THAT(effects.take(), ElementsAre("link del (no name)", "kill 1000 15"));
  EXPECT_THAT(failures(), ElementsAre("deviceRemove FAIL: cannot delete device "));
}

TEST_F(CardRemoval, LeavesNoTapOpen) {
  runWithTwoCards();
  disable();
  EXPECT_EQ(kernel.openTaps(), 0U);
  EXPECT_THAT(kernel.macvtaps(), IsEmpty());
  EXPECT_THAT(configuredHosts(), IsEmpty());
}

// Its entry among the pending ones holds it.
TEST_F(CardRemoval, KeepsACardWhoseAttachIsUnansweredUntilItsIdIsUsedAgain) {
  addCard();
  connectVlan100();
  enable();
  connectMonitor();
  disable();
  EXPECT_THAT(vm()->vnics().size(), 0U);
  EXPECT_EQ(kernel.openTaps(), 1U);
  processes.end(1000);
  turn();
  run();
  EXPECT_EQ(kernel.openTaps(), 1U);
  EXPECT_EQ(card()->status(), Vnic::linkUp);
  EXPECT_THAT(pendingIds(), IsEmpty());
}

TEST_F(CardRemoval, OfARemovedVmClosesATapThatIsStillPending) {
  addCard();
  connectVlan100();
  enable();
  connectMonitor();
  locked([&] { config->vmConfigDel("web1"); });
  EXPECT_EQ(kernel.openTaps(), 0U);
  EXPECT_THAT(kernel.macvtaps(), IsEmpty());
}

TEST_F(CardRemoval, IsFollowedByNewCardsWhenTheVmIsSwitchedOnAgain) {
  runWithTwoCards();
  const Vnic::Ptr old = card();
  disable();
  processes.end(1000);
  turn();
  run();
  EXPECT_NE(card(), old);
  EXPECT_EQ(card("net0")->status(), Vnic::linkUp);
  EXPECT_EQ(card("net1")->status(), Vnic::linkUp);
  EXPECT_THAT(kernel.macvtaps(), ElementsAre("macvtap0", "macvtap1"));
}

TEST_F(CardRemoval, DoesNotHappenWhenTheAgentEnds) {
  runWithTwoCards();
  effects.take();
  locked([&] { root->agentDel(); });
  EXPECT_THAT(effects.take(), ElementsAre("close /dev/tap501", "close /dev/tap502"));
  EXPECT_THAT(kernel.macvtaps(), SizeIs(2));
  EXPECT_THAT(configuredHosts(), SizeIs(2));
  EXPECT_THAT(processes.living(), SizeIs(1));
}

}  // namespace

}  // namespace Vm::fakes
