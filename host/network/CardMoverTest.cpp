// Cards whose interface is configured to be another while their guest runs.
#include <fcntl.h>

#include "host/fakes/HostCardsWorld.h"
#include "netlink/InterfaceFlags.h"
#include "netlink/Macvtap.h"

namespace Vm::fakes {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class CardMoverTest : public testing::Test, protected HostCardsWorld {
 protected:
  static constexpr uint32_t thirdPort = 13;

  explicit CardMoverTest(const char* interfaceOfSecond = "Ethernet2")
      : HostCardsWorld(secondMac, interfaceOfSecond) {}
  // No test may close what is not open.
  ~CardMoverTest() override { EXPECT_EQ(kernel.badCloses(), 0); }

  // Two guests whose cards are attached, and a third interface.
  void runBoth() {
    locked([&] { interfaceIs("Vlan3", thirdPort); });
    run(web1);
    run(web2);
    pass(5);
    EXPECT_TRUE(isAttached("web1") && isAttached("web2"));
    effects.take();
    asked("web1");
    asked("web2");
    looks = 0;
  }
  // The device that the VM's card stands on; 0: it has none.
  uint32_t portOf(const std::string& vmName) const {
    return isAttached(vmName) ? kernel.device(card(vmName)->macvtapDev().str())->lower : 0;
  }
};

TEST_F(CardMoverTest, MovesACardOfAGuestThatRuns) {
  runBoth();
  configure(web1, "Vlan3");
  pass(1);
  EXPECT_EQ(portOf("web1"), thirdPort);
  EXPECT_EQ(portOf("web2"), secondPort);
  EXPECT_EQ(kernel.macvtaps().size(), 2U);
  EXPECT_EQ(kernel.openTaps(), 2U);
  EXPECT_THAT(asked("web2"), IsEmpty());
  pass(60);
  EXPECT_EQ(problem("web1"), "");
  EXPECT_EQ(portOf("web1"), thirdPort);
}

TEST_F(CardMoverTest, HasTheGuestSeeItsLineGoAndComeOnce) {
  runBoth();
  configure(web1, "Vlan3");
  pass(5);
  EXPECT_THAT(asked("web1"),
              ElementsAre(HasSubstr("set_link"), HasSubstr("closefd"), HasSubstr("netdev_del"),
                          HasSubstr("getfd"), HasSubstr("netdev_add"), HasSubstr("netdev_set"),
                          HasSubstr("set_link")));
}

// The static address is its VLAN's.
TEST_F(CardMoverTest, TakesTheCardsStaticAddressAlong) {
  runBoth();
  const rt::EthAddr address{rt::String(firstMac)};
  configure(web1, "Vlan3");
  pass(1);
  const auto there = bridging->fdbConfig(Bridging::VlanId(3));
  ASSERT_TRUE(there);
  EXPECT_TRUE(there->configuredHost(address));
  configure(web1, "Ethernet1");
  pass(1);
  const auto left = bridging->fdbConfig(Bridging::VlanId(3));
  EXPECT_TRUE(!left || !left->configuredHost(address));
}

TEST_F(CardMoverTest, GivesUpACardThatIsHalfWayWhereItsStaticAddressIs) {
  runBoth();
  processes.monitor("web1").silenceIs("netdev_add");
  configure(web1, "Vlan3");
  pass(1);
  while (!host::isSettled(*vm("web1"))) pass(0.1);
  ASSERT_EQ(card("web1")->status(), Vnic::linkGoingUp);
  ASSERT_TRUE(bridging->fdbConfig(Bridging::VlanId(3)));
  processes.monitor("web1").valueIs("netdev_add", "{}");
  configure(web1, "Ethernet1");
  pass(5);
  EXPECT_EQ(portOf("web1"), firstPort);
  EXPECT_FALSE(bridging->fdbConfig(Bridging::VlanId(3)));
}

TEST_F(CardMoverTest, GivesUpFirstACardThatIsDownAndHasADescriptor) {
  runBoth();
  locked([&] { interfaceDel("Ethernet1", firstPort); });
  pass(2);
  ASSERT_EQ(card("web1")->status(), Vnic::linkDown);
  card("web1")->macvtapFdIs(static_cast<uint32_t>(open("/dev/null", O_RDWR | O_CLOEXEC)));
  configure(web1, "Vlan3");
  pass(5);
  EXPECT_EQ(portOf("web1"), thirdPort);
}

TEST_F(CardMoverTest, AsksNothingOfAGuestThatHasNotGotSoFar) {
  locked([&] {
    web1->enabledIs(true);
    vmStatus("web1")->stateIs("running");  // then the agent attaches no card
  });
  converse("web1");
  pass(1);
  asked("web1");
  configure(web1, "Ethernet2");
  pass(5);
  EXPECT_EQ(card("web1")->backendDev(), "Ethernet2");
  EXPECT_EQ(card("web1")->status(), Vnic::linkUninitialized);
  EXPECT_THAT(asked("web1"), IsEmpty());
}

TEST_F(CardMoverTest, AsksTheKernelNothingWhenNoCardIsToBeMoved) {
  runBoth();
  configure(web1, "Ethernet1");
  pass(5);
  EXPECT_EQ(looks, 0);
  EXPECT_THAT(asked("web1"), IsEmpty());
}

TEST_F(CardMoverTest, GivesACardUpThatGoesToAnInterfaceWhichIsNotThereYet) {
  runBoth();
  configure(web1, "Ethernet9");
  pass(5);
  EXPECT_FALSE(isAttached("web1"));
  EXPECT_THAT(kernel.macvtaps(), ElementsAre("macvtap1"));
  EXPECT_EQ(kernel.openTaps(), 1U);
  EXPECT_EQ(problem("web1"), "");
  locked([&] { interfaceIs("Ethernet9", 19); });
  pass(1);
  EXPECT_EQ(portOf("web1"), 19U);
}

TEST_F(CardMoverTest, AttachesACardWhoseOldInterfaceIsGone) {
  runBoth();
  locked([&] { interfaceDel("Ethernet1", firstPort); });
  pass(2);
  ASSERT_EQ(card("web1")->status(), Vnic::linkDown);
  configure(web1, "Vlan3");
  pass(1);
  EXPECT_EQ(portOf("web1"), thirdPort);
}

TEST_F(CardMoverTest, KeepsACardOffTheOldInterfaceWhenThatComesBack) {
  runBoth();
  configure(web1, "Vlan3");
  locked([&] { interfaceDel("Ethernet1", firstPort); });
  locked([&] { interfaceIs("Ethernet1", firstPort); });
  pass(5);
  EXPECT_EQ(portOf("web1"), thirdPort);
  EXPECT_EQ(kernel.macvtaps().size(), 2U);
}

TEST_F(CardMoverTest, WaitsForAnAnswerThatTheAgentWaitsFor) {
  runBoth();
  processes.monitor("web1").silenceIs("netdev_del");
  locked([&] { interfaceDel("Ethernet1", firstPort); });
  pass(1);
  ASSERT_EQ(card("web1")->status(), Vnic::linkGoingDown);
  configure(web1, "Vlan3");
  pass(2);
  EXPECT_EQ(card("web1")->backendDev(), "Ethernet1");
  processes.monitor("web1").valueIs("netdev_del", "{}");
  pass(9);
  EXPECT_EQ(portOf("web1"), thirdPort);
}

TEST_F(CardMoverTest, MovesACardTwoTimesInARow) {
  runBoth();
  configure(web1, "Vlan3");
  configure(web1, "Ethernet2");
  pass(0.1);
  configure(web1, "Ethernet1");
  pass(5);
  EXPECT_EQ(portOf("web1"), firstPort);
  EXPECT_EQ(portOf("web2"), secondPort);
  EXPECT_EQ(kernel.macvtaps().size(), 2U);
}

TEST_F(CardMoverTest, ExchangesTheInterfacesOfTwoGuests) {
  runBoth();
  configure(web1, "Ethernet2");
  configure(web2, "Ethernet1");
  pass(5);
  EXPECT_EQ(portOf("web1"), secondPort);
  EXPECT_EQ(portOf("web2"), firstPort);
}

TEST_F(CardMoverTest, LeavesACardWhereItIsWhileTheKernelDoesNotAnswer) {
  runBoth();
  kernelAnswers = false;
  configure(web1, "Vlan3");
  pass(3);
  EXPECT_EQ(card("web1")->backendDev(), "Ethernet1");
  EXPECT_EQ(card("web1")->status(), Vnic::linkUp);
  kernelAnswers = true;
  pass(7);
  EXPECT_EQ(portOf("web1"), thirdPort);
}

// It looked, and then its janitor was to look once more.
TEST_F(CardMoverTest, LeavesACardAsItWasWhenTheKernelAnswersNoMore) {
  runBoth();
  looksAnswered = 1;
  configure(web1, "Vlan3");
  pass(0.5);
  EXPECT_EQ(looks, 2);
  EXPECT_EQ(card("web1")->backendDev(), "Ethernet1");
  EXPECT_TRUE(isAttached("web1"));
  looksAnswered = std::numeric_limits<int>::max();
  configure(web1, "Ethernet1");
  pass(10);
  EXPECT_THAT(asked("web1"), IsEmpty());
}

TEST_F(CardMoverTest, LeavesACardThatIsInNoConfigurationAnyMore) {
  runBoth();
  locked([&] {
    web1->vnicConfigDel("nic00");
    healer->configured("web1");
  });
  pass(5);
  EXPECT_EQ(portOf("web1"), firstPort);
}

TEST_F(CardMoverTest, TellsOfADeviceThereWhichHasTheCardsAddress) {
  runBoth();
  netlink::deviceAdd("\x52\x54\x00\x12\x34\x01", "lan0", "Vlan3", 4, nullptr);
  netlink::ifUp("lan0", netlink::AdminState::up);
  configure(web1, "Vlan3");
  pass(20);
  EXPECT_EQ(problem("web1"),
            "card: card 52:54:00:12:34:01 cannot be attached to Vlan3: the device lan0 there has "
            "its address");
  EXPECT_THAT(kernel.macvtaps(), UnorderedElementsAre("lan0", "macvtap1"));
  configure(web1, "Ethernet1");
  pass(20);
  EXPECT_EQ(portOf("web1"), firstPort);
  EXPECT_EQ(problem("web1"), "");
}

// Two guests on one interface.
class CardMoverOfOneInterface : public CardMoverTest {
 protected:
  CardMoverOfOneInterface() : CardMoverTest("Ethernet1") {}
};

TEST_F(CardMoverOfOneInterface, SparesTheGuestThatStays) {
  runBoth();
  configure(web1, "Vlan3");
  pass(5);
  EXPECT_EQ(portOf("web1"), thirdPort);
  EXPECT_EQ(portOf("web2"), firstPort);
  EXPECT_THAT(asked("web2"), IsEmpty());
}

TEST_F(CardMoverOfOneInterface, SparesTheGuestThatIsThereAlready) {
  runBoth();
  configure(web1, "Vlan3");
  pass(5);
  asked("web2");
  configure(web1, "Ethernet1");
  pass(5);
  EXPECT_EQ(portOf("web1"), firstPort);
  EXPECT_THAT(asked("web2"), IsEmpty());
}

}  // namespace

}  // namespace Vm::fakes
