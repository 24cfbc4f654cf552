// Cards detached from the guest as their interfaces go.
#include "Vm/VmAgent/fakes/NicWorld.h"

namespace Vm::fakes {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

class NicDetach : public NicTest {
 protected:
  void runAttached() {
    addCard();
    connectVlan100();
    run();
    ASSERT_EQ(card()->status(), Vnic::linkUp);
  }
  // The card's interface comes while the guest runs; QEMU does not answer.
  void runGoingUp() {
    addCard();
    run();
    connectVlan100();
    forget();
  }
};

class NicDetachDeathTest : public testing::Test {};

TEST_F(NicDetach, AsksQemuForThreeThingsInOrder) {
  runAttached();
  disconnectVlan100();
  EXPECT_THAT(converse(), ElementsAreArray(detachRequests));
  EXPECT_EQ(card()->status(), Vnic::linkDown);
}

TEST_F(NicDetach, RemovesTheMacEntryThenTellsQemuThenClosesTheTap) {
  runAttached();
  recorder->watch(card());
  recorder->watch(vm());
  recorder->watch(vm()->monitorInput());
  recorder->watch(bridging);
  effects.take();
  disconnectVlan100();
  EXPECT_THAT(effects.take(), ElementsAre("Vnic.status = linkGoingDown", "Config.fdbConfig[100]",
                                          "MonitorInput.cmd = backendDel", "MonitorInput.cmdArgs",
                                          "MonitorInput.counter = 6", "VmConfigSm.pendingVnic[6]",
                                          "close /dev/tap501", "Vnic.macvtapFd = 4294967295"));
}

TEST_F(NicDetach, GivesTheMonitorTwoArguments) {
  runAttached();
  disconnectVlan100();
  const auto& args = *vm()->monitorInput()->cmdArgs();
  EXPECT_THAT(args.args().size(), 2U);
  EXPECT_EQ(args.arg("backendId"), (MonitorCommandArg{"backendId", 0, "hostnet0"}));
  EXPECT_EQ(args.arg("fdname"), (MonitorCommandArg{"fdname", 0, "fd-hostnet0"}));
}

TEST_F(NicDetach, KeepsTheDeviceAndItsName) {
  runAttached();
  locked([&] {  // the interface is no longer ours; its device stays
    kniStatus->interfaceDel({rt::NamespaceName(), 7});
  });
  converse();
  EXPECT_EQ(card()->status(), Vnic::linkDown);
  EXPECT_EQ(card()->macvtapDev(), "macvtap0");
  EXPECT_THAT(kernel.macvtaps(), ElementsAre("macvtap0"));
  EXPECT_EQ(kernel.openTaps(), 0U);
}

// The old macvtap is still up with the card's address.
TEST_F(NicDetach, CannotBeFollowedByAnAttachToADeviceThatNeverWentAway) {
  runAttached();
  locked([&] { kniStatus->interfaceDel({rt::NamespaceName(), 7}); });
  converse();
  forget();
  connectVlan100();
  EXPECT_THAT(effects.take(),
              ElementsAre("link add macvtap1 on Vlan100 52:54:00:12:34:56", "link del macvtap1"));
  EXPECT_EQ(card()->status(), Vnic::linkDown);
}

TEST_F(NicDetach, IsFollowedByAnAttachToADeviceThatWentAndCame) {
  runAttached();
  disconnectVlan100();
  converse();
  connectVlan100();
  converse();
  EXPECT_EQ(card()->status(), Vnic::linkUp);
  EXPECT_THAT(kernel.macvtaps(), ElementsAre("macvtap0"));
}

TEST_F(NicDetach, IsTraced) {
  runAttached();
  forget();
  disconnectVlan100();
  EXPECT_THAT(traces.take(7),
              ElementsAre("void Vm::VmSm::handleIntfStatusAndDeviceName(const IntfId&) initialized "
                          "? true",
                          "void Vm::VmConfigSm::doDeviceDisconnected(const String&) intfName: "
                          "Vlan100 for web1",
                          "void Vm::VmConfigSm::destroyNetworkDevice(const Vnic::Ptr&) for web1 "
                          "vnic: net0 status: linkUp"));
}

TEST_F(NicDetach, OfALinkThatIsGoingUpWaitsForTheAnswer) {
  runGoingUp();
  disconnectVlan100();
  EXPECT_EQ(card()->status(), Vnic::linkGoingUp);
  EXPECT_TRUE(card()->linkDownPending());
  EXPECT_EQ(kernel.openTaps(), 1U);
  EXPECT_THAT(configuredHosts(), SizeIs(1));
  EXPECT_EQ(vm()->monitorInput()->cmd(), MonitorCommand::backendAdd);
  EXPECT_THAT(traces.take(7), testing::Not(Contains(testing::HasSubstr("destroyNetworkDevice"))));
}

TEST_F(NicDetach, OfALinkThatIsGoingUpFollowsTheAnswer) {
  addCard();
  run();
  connectVlan100();
  disconnectVlan100();
  Texts asked = converse();
  ASSERT_EQ(asked.size(), 7U);
  EXPECT_THAT(Texts(asked.begin() + 4, asked.end()), ElementsAreArray(detachRequests));
  EXPECT_EQ(card()->status(), Vnic::linkDown);
  EXPECT_EQ(kernel.openTaps(), 0U);
  EXPECT_THAT(configuredHosts(), IsEmpty());
}

TEST_F(NicDetach, IsUndoneWhenTheDeviceReturnedMeanwhile) {
  runAttached();
  disconnectVlan100();
  connectVlan100();
  EXPECT_EQ(card()->status(), Vnic::linkGoingDown);
  const Texts asked = converse();
  ASSERT_EQ(asked.size(), 7U);
  EXPECT_THAT(Texts(asked.begin() + 3, asked.end()), ElementsAreArray(attachRequests));
  EXPECT_EQ(card()->status(), Vnic::linkUp);
}

TEST_F(NicDetach, LeavesCardsOfOtherInterfacesAlone) {
  addCard("nic00", "Vlan200");
  locked([&] { interfaceIs("Vlan200", 8); });
  connectVlan100();
  run();
  ASSERT_EQ(card()->status(), Vnic::linkUp);
  disconnectVlan100();
  EXPECT_EQ(card()->status(), Vnic::linkUp);
  EXPECT_THAT(effects.take(), IsEmpty());
  EXPECT_THAT(qemu().takeTexts(), IsEmpty());
}

TEST_F(NicDetach, LeavesLinksToOtherInterfacesThatAreGoingUpAlone) {
  addCard("nic00", "Vlan200");
  connectVlan100();
  run();
  locked([&] { interfaceIs("Vlan200", 8); });
  ASSERT_EQ(card()->status(), Vnic::linkGoingUp);
  disconnectVlan100();
  EXPECT_FALSE(card()->linkDownPending());
}

TEST_F(NicDetach, OfALinkThatIsDownDoesNothing) {
  addCard();
  run();
  locked([&] { vm()->doDeviceDisconnected("Vlan100"); });
  EXPECT_EQ(card()->status(), Vnic::linkDown);
  EXPECT_THAT(qemu().takeTexts(), IsEmpty());
}

TEST_F(NicDetachDeathTest, OfACardWithoutATap) {
  EXPECT_DEATH(
      {
        NicWorld world;
        world.addCard();
        world.run();
        world.card()->statusIs(Vnic::linkUp);
        world.locked([&] { world.vm()->doDeviceDisconnected("Vlan100"); });
      },
      "assertion failed: \\( int \\)vnic->macvtapFd\\(\\) != -1\n");
}

}  // namespace

}  // namespace Vm::fakes
