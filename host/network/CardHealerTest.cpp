// Cards that are cut off, by whatever, and attached anew.
#include <sys/socket.h>

#include "host/fakes/HostCardsWorld.h"
#include "netlink/InterfaceFlags.h"
#include "netlink/Macvtap.h"

namespace Vm::fakes {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class CardHealerTest : public testing::Test, protected HostCardsWorld {
 protected:
  using HostCardsWorld::HostCardsWorld;
  // No test may close what is not open.
  ~CardHealerTest() override { EXPECT_EQ(kernel.badCloses(), 0); }

  // Two guests whose cards are attached, and all that was to be looked at was.
  void runBoth() {
    run(web1);
    run(web2);
    pass(5);
    EXPECT_TRUE(isAttached("web1") && isAttached("web2"));
    forget();
  }
  void forget() {
    effects.take();
    asked("web1");
    asked("web2");
    looks = 0;
  }
  QmpPeer& qemu(const std::string& vmName) { return processes.monitor(vmName); }
  // Does it while nothing more can be written to the VM's QEMU.
  template <class Action>
  void whileQemuTakesNothing(const std::string& vmName, Action action) {
    const int socket = vm(vmName)->monFd()->descriptor();
    while (send(socket, "\n", 1, MSG_DONTWAIT | MSG_NOSIGNAL) > 0) continue;
    action();
    while (!qemu(vmName).receive().text.empty()) continue;
  }
  void hear() {
    locked([&] { healer->devicesChanged(); });
  }
  void loseInterface() {
    locked([&] { interfaceDel("Ethernet1", firstPort); });
  }
  void regainInterface() {
    locked([&] { interfaceIs("Ethernet1", firstPort); });
  }
};

TEST_F(CardHealerTest, LooksAtNothingWhileAllIsWell) {
  runBoth();
  pass(60);
  EXPECT_EQ(looks, 0);
  EXPECT_THAT(asked("web1"), IsEmpty());
}

TEST_F(CardHealerTest, LooksOnceAtWhatIsHeardTogether) {
  runBoth();
  hear();
  for (int i = 0; i < 3; ++i) {
    pass(0.3);
    EXPECT_EQ(looks, 0);
    hear();
  }
  pass(0.2);
  EXPECT_EQ(looks, 1) << "a second after the first of it";
  pass(60);
  EXPECT_EQ(looks, 1);
  EXPECT_THAT(asked("web1"), IsEmpty());
}

TEST_F(CardHealerTest, GivesACardAnotherDeviceWhenItsOwnWasDeleted) {
  runBoth();
  kernel.deviceDel("macvtap0");
  hear();
  pass(5);
  EXPECT_TRUE(isAttached("web1"));
  EXPECT_THAT(asked("web1"), Not(IsEmpty()));
  EXPECT_THAT(asked("web2"), IsEmpty());
  EXPECT_EQ(kernel.openTaps(), 2U);
  EXPECT_EQ(problem("web1"), "");
}

// As when the interface was made anew under its name and index, and nobody told.
TEST_F(CardHealerTest, GivesACardADeviceOnAnInterfaceThatWasMadeAnewUnheard) {
  runBoth();
  kernel.deviceDel("Ethernet1");
  kernel.deviceIs("Ethernet1", firstPort);
  hear();
  pass(5);
  EXPECT_TRUE(isAttached("web1"));
}

TEST_F(CardHealerTest, GivesACardAnotherDeviceWhenItsOwnWasSwitchedOff) {
  runBoth();
  netlink::ifUp("macvtap0", netlink::AdminState::down);
  hear();
  pass(5);
  EXPECT_TRUE(isAttached("web1"));
  EXPECT_THAT(kernel.macvtaps(), ElementsAre("macvtap0", "macvtap1"));
}

TEST_F(CardHealerTest, GivesACardADeviceWhoseOwnIsAnothersByName) {
  runBoth();
  kernel.deviceDel("macvtap0");
  netlink::deviceAdd("\x52\x54\x00\x99\x99\x99", "macvtap0", "Ethernet1", 4, nullptr);
  hear();
  pass(5);
  EXPECT_TRUE(isAttached("web1"));
  EXPECT_EQ(macOf("macvtap0"), "52:54:00:99:99:99");
}

TEST_F(CardHealerTest, AttachesACardThatCouldNotBeAttachedAtTheStart) {
  kernel.fail(KernelCall::buildRequest, 12);
  run(web1);
  ASSERT_EQ(card("web1")->status(), Vnic::linkDown);
  pass(5);
  EXPECT_TRUE(isAttached("web1"));
}

TEST_F(CardHealerTest, AttachesACardWhoseInterfaceCameWhenItCouldNotBe) {
  runBoth();
  loseInterface();
  pass(1);
  kernel.fail(KernelCall::buildRequest, 12);
  regainInterface();
  ASSERT_EQ(card("web1")->status(), Vnic::linkDown);
  pass(5);
  EXPECT_TRUE(isAttached("web1"));
}

TEST_F(CardHealerTest, LeavesACardAloneWhoseInterfaceIsNotThere) {
  runBoth();
  loseInterface();
  pass(2);
  forget();
  hear();
  pass(60);
  EXPECT_THAT(asked("web1"), IsEmpty());
  EXPECT_EQ(problem("web1"), "");
}

// Its guest has not got so far: what it waits for is heard of.
TEST_F(CardHealerTest, LooksOnceAtACardThatWasNeverAttached) {
  locked([&] { web1->enabledIs(true); });
  ASSERT_EQ(card("web1")->status(), Vnic::linkUninitialized);
  hear();
  for (int i = 0; i < 40; ++i) {
    advance(0.1);
    turn();
    locked([&] { healer->pass(); });
  }
  EXPECT_EQ(card("web1")->status(), Vnic::linkUninitialized);
  EXPECT_EQ(looks, 1);
}

// Answers that never come.

TEST_F(CardHealerTest, AttachesACardWhoseDetachingWasNeverAnswered) {
  runBoth();
  qemu("web1").silenceIs("netdev_del");
  loseInterface();
  pass(7);
  ASSERT_EQ(card("web1")->status(), Vnic::linkGoingDown);
  regainInterface();
  qemu("web1").valueIs("netdev_del", "{}");
  pass(5);
  EXPECT_TRUE(isAttached("web1"));
  EXPECT_EQ(kernel.openTaps(), 2U);
}

TEST_F(CardHealerTest, AttachesACardWhoseAttachingWasNeverAnswered) {
  runBoth();
  loseInterface();
  pass(1);
  qemu("web1").silenceIs("set_link");
  regainInterface();
  pass(5.2);
  ASSERT_EQ(card("web1")->status(), Vnic::linkGoingUp);
  qemu("web1").valueIs("set_link", "{}");
  pass(5);
  EXPECT_TRUE(isAttached("web1"));
  EXPECT_EQ(kernel.openTaps(), 2U);
  EXPECT_THAT(kernel.macvtaps(), ElementsAre("macvtap0", "macvtap1"));
}

TEST_F(CardHealerTest, WaitsForAnAnswerThatMayComeStill) {
  runBoth();
  qemu("web1").silenceIs("netdev_del");
  loseInterface();
  regainInterface();
  pass(4);
  EXPECT_EQ(card("web1")->status(), Vnic::linkGoingDown);
  qemu("web1").send(returnOf("netdev"));
  pass(1);
  EXPECT_TRUE(isAttached("web1"));
}

TEST_F(CardHealerTest, AttachesACardWhoseDetachingCouldNotBeWritten) {
  runBoth();
  whileQemuTakesNothing("web1", [&] { EXPECT_THROW(loseInterface(), rt::Exception); });
  ASSERT_EQ(card("web1")->status(), Vnic::linkGoingDown);
  regainInterface();
  pass(5);
  EXPECT_TRUE(isAttached("web1"));
  EXPECT_EQ(kernel.openTaps(), 2U);
}

TEST_F(CardHealerTest, AttachesACardWhoseAttachingCouldNotBeWritten) {
  runBoth();
  loseInterface();
  pass(1);
  whileQemuTakesNothing("web1", [&] { EXPECT_THROW(regainInterface(), rt::Exception); });
  ASSERT_EQ(card("web1")->status(), Vnic::linkGoingUp);
  ASSERT_EQ(card("web1")->macvtapDev(), "macvtap0");
  pass(5);
  EXPECT_TRUE(isAttached("web1"));
  EXPECT_THAT(kernel.macvtaps(), ElementsAre("macvtap0", "macvtap1"));
}

// In vain.

TEST_F(CardHealerTest, TellsWhyACardCannotBeAttachedAndThatItIsAtLast) {
  runBoth();
  kernel.deviceDel("macvtap0");
  netlink::deviceAdd("\x52\x54\x00\x12\x34\x01", "lan0", "Ethernet1", 4, nullptr);
  netlink::ifUp("lan0", netlink::AdminState::up);
  hear();
  pass(8);
  EXPECT_EQ(problem("web1"),
            "card: card 52:54:00:12:34:01 cannot be attached to Ethernet1: the device lan0 there "
            "has its address");
  EXPECT_EQ(problem("web2"), "");
  EXPECT_THAT(kernel.macvtaps(), ElementsAre("lan0", "macvtap1")) << "a stranger's is not deleted";
  pass(1000, 1);
  kernel.deviceDel("lan0");
  hear();
  pass(2);
  EXPECT_TRUE(isAttached("web1"));
  pass(1);
  EXPECT_EQ(problem("web1"), "");
}

TEST_F(CardHealerTest, TellsWhatTheAgentSaysOfACardThatCannotBeAttached) {
  runBoth();
  kernel.deviceDel("macvtap0");
  kernel.nodeAfter = FakeKernel::never;
  hear();
  pass(400, 1);
  EXPECT_THAT(problem("web1"), HasSubstr("FAIL: cannot setup macvtap for web1"));
  EXPECT_THAT(kernel.macvtaps(), ElementsAre("macvtap1"));
}

TEST_F(CardHealerTest, SeesNoObstacleInAStrangersDeviceThatIsDown) {
  runBoth();
  kernel.deviceDel("macvtap0");
  netlink::deviceAdd("\x52\x54\x00\x12\x34\x01", "lan0", "Ethernet1", 4, nullptr);
  kernel.nodeAfter = FakeKernel::never;
  hear();
  pass(400, 1);
  EXPECT_THAT(problem("web1"), HasSubstr("FAIL: cannot setup macvtap for web1"));
}

// No record of the agent's changes then, so nobody else has the card looked at.
TEST_F(CardHealerTest, TriesACureAgainThatHasChangedNothing) {
  runBoth();
  netlink::ifUp("macvtap0", netlink::AdminState::down);
  deletes = false;
  hear();
  pass(2.5);
  EXPECT_EQ(problem("web1"), "");
  deletes = true;
  pass(5);
  EXPECT_TRUE(isAttached("web1"));
}

TEST_F(CardHealerTest, HoldsTheLoopUpSeldomForACardThatCannotBeAttached) {
  runBoth();
  kernel.deviceDel("macvtap0");
  kernel.nodeAfter = FakeKernel::never;
  hear();
  processes.pauses.clear();
  const double before = clock->now().value();
  pass(3000, 1);
  const double paused = static_cast<double>(processes.pauses.size()) / 10;
  EXPECT_GT(paused, 10);
  EXPECT_LT(paused, (clock->now().value() - before) / 25);
}

TEST_F(CardHealerTest, ForgetsTheProblemOfAGuestThatHasEnded) {
  runBoth();
  kernel.deviceDel("macvtap0");
  kernel.nodeAfter = FakeKernel::never;
  hear();
  pass(400, 1);
  ASSERT_NE(problem("web1"), "");
  processes.end(vm("web1")->qemuChildProcess()->pid());
  pass(2);
  EXPECT_EQ(problem("web1"), "");
  looks = 0;
  pass(60);
  EXPECT_EQ(looks, 0);
}

TEST_F(CardHealerTest, LooksAgainWhenTheKernelDidNotAnswer) {
  runBoth();
  kernelAnswers = false;
  kernel.deviceDel("macvtap0");
  hear();
  pass(4);
  kernelAnswers = true;
  pass(8);
  EXPECT_TRUE(isAttached("web1"));
}

// Two guests on one interface.
class CardHealerOfOneInterface : public CardHealerTest {
 protected:
  CardHealerOfOneInterface() : CardHealerTest(secondMac, "Ethernet1") {}
};

TEST_F(CardHealerOfOneInterface, SparesTheOtherGuest) {
  runBoth();
  kernel.deviceDel("macvtap0");
  hear();
  pass(5);
  EXPECT_TRUE(isAttached("web1"));
  EXPECT_TRUE(isAttached("web2"));
  EXPECT_THAT(asked("web2"), IsEmpty());
}

TEST_F(CardHealerOfOneInterface, CuresBothThatLostTheirDevices) {
  runBoth();
  kernel.deviceDel("macvtap0");
  kernel.deviceDel("macvtap1");
  hear();
  pass(5);
  EXPECT_TRUE(isAttached("web1"));
  EXPECT_TRUE(isAttached("web2"));
}

}  // namespace

}  // namespace Vm::fakes
