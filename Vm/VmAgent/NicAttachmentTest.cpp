// Cards attached to the guest as their interfaces come.
#include <fcntl.h>
#include <netlink/errno.h>

#include "Vm/VmAgent/fakes/NicWorld.h"

namespace Vm::fakes {

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

class NicAttachment : public NicTest {
 protected:
  // The card's interface comes while the guest runs: what QEMU is asked then.
  std::vector<Received> attachLate() {
    run();
    forget();
    connectVlan100();
    return qemu().take();
  }
  void runAttached() {
    addCard();
    connectVlan100();
    run();
    ASSERT_EQ(card()->status(), Vnic::linkUp);
  }
};

class NicAttachmentDeathTest : public testing::Test {};

// Attach.

TEST_F(NicAttachment, AsksQemuForFourThingsInOrder) {
  addCard();
  connectVlan100();
  const Texts asked = run();
  EXPECT_THAT(Texts(asked.begin() + 3, asked.begin() + 7), ElementsAreArray(attachRequests));
}

TEST_F(NicAttachment, HandsQemuTheTapItOpenedWithTheFirstRequestOnly) {
  addCard();
  const auto first = attachLate();
  ASSERT_THAT(first, SizeIs(1));
  EXPECT_EQ(first[0].text, attachRequests[0]);
  ASSERT_THAT(first[0].descriptors, SizeIs(1));
  EXPECT_TRUE(isSameFile(first[0].descriptors[0], kernel.tapOf("macvtap0")));
  for (const size_t next : {1U, 2U, 3U}) {
    qemu().send(returnOf(next == 1 ? "getfd" : "netdev"));
    turn();
    const auto request = qemu().take();
    ASSERT_THAT(request, SizeIs(1));
    EXPECT_EQ(request[0].text, attachRequests[next]);
    EXPECT_THAT(request[0].descriptors, IsEmpty());
  }
}

TEST_F(NicAttachment, MakesTheDeviceThenTellsQemuThenInstallsTheMacEntry) {
  addCard();
  run();
  recorder->watch(card());
  recorder->watch(vm());
  recorder->watch(vm()->monitorInput());
  recorder->watch(bridging);
  effects.take();
  connectVlan100();
  EXPECT_THAT(
      effects.take(),
      ElementsAre(
          "link add macvtap0 on Vlan100 52:54:00:12:34:56", "up macvtap0", "open /dev/tap501",
          "Vnic.status = linkGoingUp", "MonitorInput.cmd = backendAdd", "MonitorInput.cmdArgs",
          "MonitorInput.counter = 5", "VmConfigSm.pendingVnic[5]", "Vnic.macvtapDev = macvtap0",
          "Vnic.macvtapFd = " + std::to_string(kernel.tapOf("macvtap0")), "Config.fdbConfig[100]"));
}

TEST_F(NicAttachment, GivesTheMonitorFourArguments) {
  addCard();
  attachLate();
  const auto& args = *vm()->monitorInput()->cmdArgs();
  EXPECT_THAT(args.args().size(), 4U);
  EXPECT_EQ(args.arg("fd"), (MonitorCommandArg{"fd", card()->macvtapFd(), {}}));
  EXPECT_EQ(args.arg("fdname"), (MonitorCommandArg{"fdname", 0, "fd-hostnet0"}));
  EXPECT_EQ(args.arg("nicId"), (MonitorCommandArg{"nicId", 0, "net0"}));
  EXPECT_EQ(args.arg("backendId"), (MonitorCommandArg{"backendId", 0, "hostnet0"}));
}

TEST_F(NicAttachment, IsTracedOnEntry) {
  addCard();
  run();
  forget();
  connectVlan100();
  const auto said = traces.take(7);
  EXPECT_THAT(said,
              testing::IsSupersetOf(
                  {"void Vm::VmSm::handleIntfStatusAndDeviceName(const IntfId&) initialized ? true",
                   "void Vm::VmConfigSm::doDeviceConnected(const String&) intfName: Vlan100 for "
                   "web1",
                   "void Vm::VmConfigSm::setupNetworkDevice(const Vnic::Ptr&) for web1 vnic: net0 "
                   "status: linkDown"}));
}

TEST_F(NicAttachment, KeepsTheTapFromOtherGuests) {
  runAttached();
  EXPECT_EQ(fcntl(static_cast<int>(card()->macvtapFd()), F_GETFD), FD_CLOEXEC);
}

TEST_F(NicAttachment, OfTwoCardsOnOneInterfaceTakesADeviceForEach) {
  addCard("nic00");
  addCard("nic01", "Vlan100", secondMac);
  run();
  connectVlan100();
  converse();
  EXPECT_THAT(kernel.macvtaps(), ElementsAre("macvtap0", "macvtap1"));
  EXPECT_EQ(card("net0")->macvtapDev(), "macvtap0");
  EXPECT_EQ(card("net1")->macvtapDev(), "macvtap1");
  EXPECT_EQ(card("net0")->status(), Vnic::linkUp);
  EXPECT_EQ(card("net1")->status(), Vnic::linkUp);
  EXPECT_EQ(kernel.device("macvtap1")->mac, secondMac);
}

TEST_F(NicAttachment, LeavesCardsOfOtherInterfacesAlone) {
  addCard("nic00", "Vlan200");
  attachLate();
  EXPECT_EQ(card()->status(), Vnic::linkDown);
  EXPECT_THAT(effects.take(), IsEmpty());
}

TEST_F(NicAttachment, LeavesALinkThatIsUpAlone) {
  runAttached();
  forget();
  locked([&] { vmSm()->handleIntfStatusAndDeviceName(); });
  EXPECT_EQ(card()->status(), Vnic::linkUp);
  EXPECT_THAT(effects.take(), IsEmpty());
  EXPECT_THAT(qemu().takeTexts(), IsEmpty());
}

TEST_F(NicAttachment, LeavesALinkThatIsGoingUpAlone) {
  addCard();
  attachLate();
  forget();
  locked([&] { vmSm()->handleIntfStatusAndDeviceName(); });
  EXPECT_EQ(card()->status(), Vnic::linkGoingUp);
  EXPECT_THAT(effects.take(), IsEmpty());
  EXPECT_THAT(pendingIds(), SizeIs(1));
}

TEST_F(NicAttachment, LeavesACardThatWasNeverAttachedAlone) {
  addCard();
  enable();
  connectVlan100();
  EXPECT_EQ(card()->status(), Vnic::linkUninitialized);
  EXPECT_THAT(effects.take(), ElementsAre("fork 1000", "connect /var/run/web1.monitor"));
}

TEST_F(NicAttachment, OfAnInterfaceNotListedIsRefused) {
  addCard();
  run();
  EXPECT_EQ(card()->status(), Vnic::linkDown);
  forget();
  qemu().close();  // nothing is asked of it from now on
  locked([&] { vm()->doDeviceConnected("Vlan100"); });
  EXPECT_THAT(failures(), ElementsAre("setupNetworkDevice FAIL: backend device: Vlan100 does not "
                                      "exist for web1"));
  EXPECT_THAT(effects.take(), IsEmpty());
}

TEST_F(NicAttachment, OfAnInterfaceWithoutADeviceNameIsRefused) {
  addCard();
  run();
  forget();
  allIntfStatusDir->intfStatusIs(rt::IntfId("Vlan100"));
  locked([&] { deviceIntfStatusDir->intfStatusAndDeviceNameIs(rt::IntfId("Vlan100"), {"", 7}); });
  EXPECT_THAT(failures(), ElementsAre("setupNetworkDevice FAIL: backend device: Vlan100 does not "
                                      "exist for web1"));
  EXPECT_EQ(card()->status(), Vnic::linkDown);
  EXPECT_THAT(effects.take(), IsEmpty());
}

TEST_F(NicAttachment, StandsOnTheInterfacesDeviceWhateverThatIsCalled) {
  addCard();
  run();
  kernel.deviceIs("br0.100", 9);
  locked([&] {
    allIntfStatusLocalDir->intfStatusLocalIs(rt::IntfId("Vlan100"), {"br0.100", {}});
    kniStatus->interfaceIs({rt::NamespaceName(), 9}, "br0.100");
  });
  EXPECT_EQ(kernel.device("macvtap0")->lower, 9U);
  EXPECT_THAT(configuredHosts(), ElementsAre("100 52:54:00:12:34:56 Cpu 4 1048576 false"));
}

TEST_F(NicAttachment, OfAnUnknownInterfaceComesToNothingBeforeTheAgentRuns) {
  addCard();
  connectVlan100();
  EXPECT_THAT(effects.take(), IsEmpty());
}

// What fails, and what is left after it.

TEST_F(NicAttachment, RemovesNothingWhenTheDeviceCouldNotBeMade) {
  addCard();
  run();
  kernel.fail(KernelCall::sendRequest, NLE_PERM);
  connectVlan100();
  EXPECT_THAT(effects.take(), IsEmpty());
  EXPECT_THAT(failures(), ElementsAre("deviceAdd FAIL: cannot send to nl socket ",
                                      "setupMacvtap FAIL: deviceAdd failed for macvtap0",
                                      "setupNetworkDevice FAIL: cannot setup macvtap for web1"));
}

TEST_F(NicAttachment, RemovesNothingWhenNoNameCouldBeFound) {
  addCard();
  run();
  kernel.fail(KernelCall::nameToIndex, EACCES);
  connectVlan100();
  EXPECT_THAT(effects.take(), IsEmpty());
  EXPECT_THAT(failures(), ElementsAre("setupMacvtap FAIL: Permission denied",
                                      "setupNetworkDevice FAIL: cannot setup macvtap for web1"));
}

TEST_F(NicAttachment, RemovesTheDeviceThatCouldNotBeSetUp) {
  addCard();
  run();
  kernel.fail(KernelCall::setFlags, EBUSY);
  connectVlan100();
  EXPECT_THAT(effects.take(),
              ElementsAre("link add macvtap0 on Vlan100 52:54:00:12:34:56", "link del macvtap0"));
  EXPECT_THAT(failures(),
              ElementsAre("ifUpFAIL: cannot ioctl to set if flags",
                          "setupMacvtap FAIL: cannot 'up' interface macvtap0 -- another macvtap "
                          "device may be 'up' and have the same MAC address ",
                          "setupNetworkDevice FAIL: cannot setup macvtap for web1"));
}

TEST_F(NicAttachment, RemovesTheDeviceWhoseTapCouldNotBeOpened) {
  addCard();
  run();
  kernel.nodeAfter = FakeKernel::never;
  connectVlan100();
  EXPECT_THAT(effects.take(), ElementsAre("link add macvtap0 on Vlan100 52:54:00:12:34:56",
                                          "up macvtap0", "down macvtap0", "link del macvtap0"));
  EXPECT_THAT(failures(),
              ElementsAre("openTap FAIL: cannot open macvtap device /dev/tap501 check if udevd is "
                          "running ",
                          "setupMacvtap FAIL: cannot open tap device ",
                          "setupNetworkDevice FAIL: cannot setup macvtap for web1"));
}

TEST_F(NicAttachment, RemovesTheForeignDeviceItFellBackTo) {
  addCard();
  run();
  for (uint32_t i = 0; i < 8192; ++i) kernel.deviceIs("macvtap" + std::to_string(i), 10'000 + i);
  connectVlan100();
  EXPECT_THAT(effects.take(), ElementsAre("down macvtap8191", "link del macvtap8191"));
}

TEST_F(NicAttachment, ThatFailedLeavesTheLinkDownWithoutATapOrAMacEntry) {
  addCard();
  run();
  kernel.fail(KernelCall::setFlags, EBUSY);
  connectVlan100();
  EXPECT_EQ(card()->status(), Vnic::linkDown);
  EXPECT_EQ(card()->macvtapFd(), Vnic::noFd);
  EXPECT_EQ(card()->macvtapDev(), "");
  EXPECT_EQ(kernel.openTaps(), 0U);
  EXPECT_THAT(configuredHosts(), IsEmpty());
  EXPECT_THAT(pendingIds(), IsEmpty());
  EXPECT_THAT(qemu().takeTexts(), IsEmpty());
}

TEST_F(NicAttachment, ThatFailedIsTriedAgainWhenTheInterfaceNextShowsUp) {
  addCard();
  run();
  kernel.fail(KernelCall::setFlags, EBUSY);
  connectVlan100();
  locked([&] { vmSm()->handleIntfStatusAndDeviceName(); });
  converse();
  EXPECT_EQ(card()->status(), Vnic::linkUp);
}

TEST_F(NicAttachment, ThatFailsForOneCardDoesNotKeepTheNextFromBeingAttached) {
  addCard("nic00");
  addCard("nic01", "Vlan100", secondMac);
  run();
  kernel.fail(KernelCall::setFlags, EBUSY);
  connectVlan100();
  converse();
  EXPECT_EQ(card("net0")->status(), Vnic::linkDown);
  EXPECT_EQ(card("net1")->status(), Vnic::linkUp);
  EXPECT_EQ(card("net1")->macvtapDev(), "macvtap0");
}

TEST_F(NicAttachment, OfTwoCardsWithOneAddressKeepsTheFirst) {
  addCard("nic00");
  addCard("nic01");
  run();
  connectVlan100();
  converse();
  EXPECT_EQ(card("net0")->status(), Vnic::linkUp);
  EXPECT_EQ(card("net1")->status(), Vnic::linkDown);
  EXPECT_THAT(kernel.macvtaps(), ElementsAre("macvtap0"));
}

TEST_F(NicAttachment, WaitsForItsTapNodeWithoutTheActivityLock) {
  addCard();
  run();
  kernel.nodeAfter = FakeKernel::never;
  processes.pauses.clear();
  int lockedPauses = 0;
  processes.onPause = [&] { lockedPauses += rt::activityLock().heldByThisThread() ? 1 : 0; };
  bool lockedAfter = false;
  locked([&] {
    interfaceIs("Vlan100", 7);
    lockedAfter = rt::activityLock().heldByThisThread();
  });
  EXPECT_EQ(kernel.calls(KernelCall::openTap), 101);
  EXPECT_EQ(processes.pauses, std::vector<uint64_t>(100, 100'000));
  EXPECT_EQ(lockedPauses, 0);
  EXPECT_TRUE(lockedAfter);
}

TEST_F(NicAttachment, OpensATapNodeThatIsMadeTwoSecondsLate) {
  addCard();
  run();
  kernel.nodeAfter = FakeKernel::never;
  const rt::Seconds made = clock->now() + rt::Seconds(1.95);
  processes.onPause = [&] {
    if (clock->now() >= made) kernel.nodeIs(501);
  };
  connectVlan100();
  EXPECT_EQ(kernel.calls(KernelCall::openTap), 21);
  EXPECT_EQ(card()->status(), Vnic::linkGoingUp);
}

TEST_F(NicAttachment, ClosesTheTapWhenTheMonitorCannotBeWrittenTo) {
  addCard();
  run();
  qemu().close();
  EXPECT_THROW(connectVlan100(), rt::InternalException);
  EXPECT_EQ(kernel.openTaps(), 0U);
  EXPECT_EQ(card()->macvtapFd(), Vnic::noFd);
  EXPECT_THAT(pendingIds(), IsEmpty());
}

TEST_F(NicAttachmentDeathTest, OfACardWhoseTapIsOpen) {
  EXPECT_DEATH(
      {
        NicWorld world;
        world.addCard();
        world.connectVlan100();
        world.run();
        world.card()->statusIs(Vnic::linkDown);
        world.locked([&] { world.vm()->doDeviceConnected("Vlan100"); });
      },
      "assertion failed: \\( int \\)vnic->macvtapFd\\(\\) == -1\n");
}

}  // namespace

}  // namespace Vm::fakes
