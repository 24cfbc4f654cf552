// What a VM's machine does with each result of its monitor session.
#include "Vm/VmAgent/fakes/NicWorld.h"

namespace Vm::fakes {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

using enum MonitorCommand;
constexpr auto failure = MonitorOutput::MonitorCommandStatus::failure;

class MonitorResponse : public NicTest {
 protected:
  // A guest that runs with one attached card.
  void runWithCard() {
    addCard();
    connectVlan100();
    run();
  }
  // One whose card's attach or detach nobody has answered.
  void runWithCardGoingUp() {
    addCard();
    connectVlan100();
    enable();
    connectMonitor();
    forget();
  }
  // QEMU leaves the next request, whatever it is, without an answer.
  void timeOut() {
    qemu().takeTexts();
    advance(5);
  }
  // QEMU answers the attach, but not the request after it.
  void answerAttachOnly() {
    enable();
    qemu().silenceIs("cont");
    converse();
  }
  uint32_t firstPending() const { return pendingIds().front(); }
  static Texts withPending(Texts effects) {
    std::erase_if(effects,
                  [](const auto& effect) { return effect.find("pendingVnic") == effect.npos; });
    return effects;
  }
};

class MonitorResponseDeathTest : public testing::Test {};

TEST_F(MonitorResponse, OfTheCharacterDevicesSetsTheConsoleUnchanged) {
  run();
  forget();
  publish(queryChardev, 9, " /dev/pts/17 ");
  EXPECT_EQ(status()->consolePtyPath(), " /dev/pts/17 ");
  EXPECT_THAT(traces.take(),
              ElementsAre("8 void Vm::VmConfigSm::handleMonitorResponse() for web1 cmd: "
                          "queryChardev val:  /dev/pts/17 ",
                          "8 handleMonitorResponse: setting pty  /dev/pts/17 "));
}

TEST_F(MonitorResponse, OfTheRunStateSetsTheState) {
  run();
  forget();
  publish(queryStatus, 9, "Stopped");
  EXPECT_EQ(status()->state(), "Stopped");
  EXPECT_THAT(traces.take(),
              ElementsAre("8 void Vm::VmConfigSm::handleMonitorResponse() for web1 cmd: "
                          "queryStatus val: Stopped",
                          "8 handleMonitorResponse: setting state Stopped"));
}

TEST_F(MonitorResponse, OfStartVmAndOfTheCapabilitiesChangesNothing) {
  run();
  recorder->watch(status());
  for (const MonitorCommand cmd : {startVm, enterCmdMode}) publish(cmd, 9, "anything");
  EXPECT_THAT(effects.take(), IsEmpty());
  EXPECT_THAT(traces.take(),
              ElementsAre("8 void Vm::VmConfigSm::handleMonitorResponse() for web1 cmd: "
                          "startVm val: anything",
                          "8 void Vm::VmConfigSm::handleMonitorResponse() for web1 cmd: "
                          "enterCmdMode val: anything"));
}

TEST_F(MonitorResponse, IsIgnoredAtCounterZero) {
  run();
  vm()->monitorOutput()->cmdIs(queryStatus);
  vm()->monitorOutput()->valIs("Stopped");
  forget();
  vm()->monitorOutput()->counterIs(0);
  EXPECT_EQ(status()->state(), "Running");
  EXPECT_THAT(traces.take(), IsEmpty());
}

TEST_F(MonitorResponse, ThatFailedIsTreatedAsASuccess) {
  runWithCardGoingUp();
  publish(queryStatus, 2, "Running", failure);
  publish(queryChardev, 3, "/dev/pts/9", failure);
  publish(backendAdd, firstPending(), "", failure);
  EXPECT_EQ(status()->state(), "Running");
  EXPECT_EQ(status()->consolePtyPath(), "/dev/pts/9");
  EXPECT_EQ(card()->status(), Vnic::linkUp);
}

TEST_F(MonitorResponse, OfATimeOutAfterTheCharacterDevicesClearsTheConsole) {
  enable();
  connectMonitor();
  qemu().send(returnOf("status", "{\"status\": \"running\", \"running\": true}"));
  turn();
  qemu().send(returnOf("chardev", "[{\"filename\": \"pty:/dev/pts/3\", \"label\": \"serial0\"}]"));
  turn();
  ASSERT_EQ(status()->consolePtyPath(), "pty:/dev/pts/3");
  timeOut();  // of cont
  EXPECT_EQ(status()->consolePtyPath(), "");
  EXPECT_EQ(status()->state(), "Running");
}

TEST_F(MonitorResponse, OfATimeOutThatClearedTheConsoleIsFollowedByAnotherQuery) {
  enable();
  connectMonitor();
  qemu().send(returnOf("status", "{\"status\": \"running\", \"running\": true}"));
  turn();
  qemu().send(returnOf("chardev", "[{\"filename\": \"pty:/dev/pts/3\", \"label\": \"serial0\"}]"));
  turn();
  timeOut();
  converse();
  advance(5);
  EXPECT_THAT(converse(), Contains(chardevRequest));
  EXPECT_EQ(status()->consolePtyPath(), "pty:/dev/pts/3");
}

TEST_F(MonitorResponse, OfATimeOutAfterTheRunStateEmptiesTheState) {
  run();
  advance(5);
  converse();
  ASSERT_EQ(status()->state(), "Running");
  advance(5);
  timeOut();
  EXPECT_EQ(status()->state(), "");
}

TEST_F(MonitorResponse, OfATimeOutAfterAnAttachFindsNoCardPending) {
  addCard();
  connectVlan100();
  answerAttachOnly();
  EXPECT_THAT(pendingIds(), IsEmpty());
  forget();
  timeOut();
  EXPECT_THAT(failures(), ElementsAre("handleMonitorResponse FAIL: no vnic pending for cmdId 4"));
  EXPECT_EQ(card()->status(), Vnic::linkUp);
}

TEST_F(MonitorResponse, ForACardThatIsNotPendingChangesNothing) {
  runWithCard();
  publish(backendDel, 77);
  EXPECT_THAT(failures(), ElementsAre("handleMonitorResponse FAIL: no vnic pending for cmdId 77"));
  EXPECT_EQ(card()->status(), Vnic::linkUp);
  EXPECT_THAT(effects.take(), IsEmpty());
}

TEST_F(MonitorResponse, OfAnAttachBringsTheLinkUp) {
  runWithCardGoingUp();
  publish(backendAdd, firstPending());
  EXPECT_EQ(card()->status(), Vnic::linkUp);
  EXPECT_THAT(pendingIds(), IsEmpty());
  EXPECT_THAT(traces.take(7), ElementsAre("handleMonitorResponse for web1 netdev_add  vnic status: "
                                          "linkGoingUp netid: hostnet0"));
}

TEST_F(MonitorResponse, OfAnAttachDetachesACardWhoseDeviceWent) {
  runWithCardGoingUp();
  disconnectVlan100();
  const uint32_t added = firstPending();
  recorder->watch(card());
  effects.take();
  publish(backendAdd, added);
  auto done = effects.take();
  std::erase_if(done, [](const auto& line) { return !line.starts_with("Vnic.status"); });
  EXPECT_THAT(done, ElementsAre("Vnic.status = linkUp", "Vnic.status = linkGoingDown"));
  EXPECT_FALSE(card()->linkDownPending());
  EXPECT_THAT(pendingIds(), ElementsAre(vm()->monitorInput()->counter()));
  EXPECT_EQ(vm()->monitorInput()->cmd(), backendDel);
}

TEST_F(MonitorResponse, OfAnAttachForgetsItsRequestOnceTheCardHasBeenSeenTo) {
  runWithCardGoingUp();
  disconnectVlan100();
  const std::string added = std::to_string(firstPending());
  recorder->watch(vm());
  effects.take();
  publish(backendAdd, firstPending());
  EXPECT_THAT(withPending(effects.take()),
              ElementsAre("VmConfigSm.pendingVnic[" + std::to_string(firstPending()) + "]",
                          "VmConfigSm.pendingVnic[" + added + "]"));
}

TEST_F(MonitorResponse, OfADetachForgetsItsRequestOnceTheCardHasBeenSeenTo) {
  runWithCard();
  disconnectVlan100();
  connectVlan100();
  const std::string deleted = std::to_string(firstPending());
  recorder->watch(vm());
  effects.take();
  publish(backendDel, firstPending());
  EXPECT_THAT(withPending(effects.take()),
              ElementsAre("VmConfigSm.pendingVnic[" + std::to_string(firstPending()) + "]",
                          "VmConfigSm.pendingVnic[" + deleted + "]"));
}

TEST_F(MonitorResponse, OfADetachBringsTheLinkDown) {
  runWithCard();
  disconnectVlan100();
  forget();
  publish(backendDel, firstPending());
  EXPECT_EQ(card()->status(), Vnic::linkDown);
  EXPECT_THAT(pendingIds(), IsEmpty());
  EXPECT_THAT(traces.take(), ElementsAre("8 void Vm::VmConfigSm::handleMonitorResponse() for web1 "
                                         "cmd: backendDel val: ",
                                         "7 handleMonitorResponse for web1 netdev_del  vnic "
                                         "status: linkGoingDown netid: hostnet0"));
}

TEST_F(MonitorResponse, OfADetachAttachesACardWhoseDeviceReturned) {
  runWithCard();
  disconnectVlan100();
  const uint32_t deleted = firstPending();
  connectVlan100();
  ASSERT_EQ(card()->status(), Vnic::linkGoingDown);  // the return alone does nothing
  recorder->watch(card());
  effects.take();
  publish(backendDel, deleted);
  auto done = effects.take();
  std::erase_if(done, [](const auto& line) { return !line.starts_with("Vnic.status"); });
  EXPECT_THAT(done, ElementsAre("Vnic.status = linkDown", "Vnic.status = linkGoingUp"));
  EXPECT_GT(firstPending(), deleted);
  EXPECT_EQ(pendingIds().size(), 1U);
  EXPECT_EQ(vm()->monitorInput()->cmd(), backendAdd);
}

TEST_F(MonitorResponse, OfADetachDoesNotAttachToAnInterfaceWhoseDeviceIsNotThere) {
  runWithCard();
  disconnectVlan100();
  allIntfStatusDir->intfStatusIs(rt::IntfId("Vlan100"));  // without a device
  forget();
  publish(backendDel, firstPending());
  EXPECT_THAT(failures(), IsEmpty());
  EXPECT_EQ(card()->status(), Vnic::linkDown);
}

TEST_F(MonitorResponseDeathTest, OfAnAttachForALinkThatIsNotGoingUp) {
  EXPECT_DEATH(
      {
        NicWorld world;
        world.addCard();
        world.connectVlan100();
        world.run();
        world.vm()->pendingVnicIs(50, world.card());
        world.publish(backendAdd, 50);
      },
      "assertion failed: vnic->status\\(\\) == Vnic::linkGoingUp\\(\\)\n");
}

TEST_F(MonitorResponseDeathTest, OfADetachForALinkThatIsNotGoingDown) {
  EXPECT_DEATH(
      {
        NicWorld world;
        world.addCard();
        world.connectVlan100();
        world.run();
        world.vm()->pendingVnicIs(50, world.card());
        world.publish(backendDel, 50);
      },
      "assertion failed: vnic->status\\(\\) == Vnic::linkGoingDown\\(\\)\n");
}

}  // namespace

}  // namespace Vm::fakes
