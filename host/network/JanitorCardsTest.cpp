// Which devices go with a VM, and which do not, whatever the agent remembers.
#include "host/fakes/HostCardsWorld.h"

namespace Vm::fakes {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class JanitorCards : public testing::Test, protected HostCardsWorld {
 protected:
  explicit JanitorCards(const char* macOfSecond = secondMac) : HostCardsWorld(macOfSecond) {}
  // web1's interface goes with web1's device, and web2 gets a device of that name.
  void passTheNameOn() {
    run(web1);
    kernel.deviceDel("Ethernet1");
    run(web2);
    ASSERT_EQ(card("web1")->macvtapDev(), "macvtap0");
    ASSERT_EQ(card("web2")->macvtapDev(), "macvtap0");
    effects.take();
  }
};

// Without whom this is so: the agent deletes by the name it remembers.
TEST_F(JanitorCards, IsNeededForTheAgentDeletesWhatHasTheNameByNow) {
  passTheNameOn();
  locked([&] { web1->enabledIs(false); });
  EXPECT_THAT(deletions(), ElementsAre("link del macvtap0"));
  EXPECT_EQ(macOf("macvtap0"), "");
}

TEST_F(JanitorCards, LeavesAVmItsDeviceWhenAnotherThatHadTheNameIsSwitchedOff) {
  passTheNameOn();
  switchOff(web1);
  EXPECT_EQ(macOf("macvtap0"), secondMac);
  EXPECT_THAT(deletions(), ElementsAre("link del (no name)"));
}

TEST_F(JanitorCards, LeavesAVmItsDeviceWhenAnotherThatHadTheNameIsRemoved) {
  passTheNameOn();
  locked([&] {
    janitor.switchingOff("web1");
    config->vmConfigDel("web1");
    janitor.switchedOff("web1");
  });
  EXPECT_EQ(macOf("macvtap0"), secondMac);
}

TEST_F(JanitorCards, LeavesAVmItsDeviceThoughTheNewsOfTheOthersWasRead) {
  run(web1);
  locked([&] { interfaceDel("Ethernet1", firstPort); });
  converse("web1");
  run(web2);
  ASSERT_EQ(card("web1")->macvtapDev(), "macvtap0");
  switchOff(web1);
  EXPECT_EQ(macOf("macvtap0"), secondMac);
}

TEST_F(JanitorCards, HasAVmThatIsSwitchedOffLoseItsOwnDeviceOnce) {
  run(web1);
  effects.take();
  switchOff(web1);
  EXPECT_THAT(deletions(), ElementsAre("link del macvtap0"));
  EXPECT_THAT(kernel.macvtaps(), IsEmpty());
}

TEST_F(JanitorCards, DeletesWhatAVmThatIsSwitchedOffHadWithoutTheAgentsKnowing) {
  run(web1);
  run(web2);
  card("web1")->macvtapDevIs("");
  effects.take();
  switchOff(web1);
  EXPECT_THAT(deletions(), ElementsAre("link del (no name)", "janitor del macvtap0"));
  EXPECT_THAT(kernel.macvtaps(), ElementsAre("macvtap1"));
}

TEST_F(JanitorCards, LeavesADeviceThatAnotherProgramHasOpenWhoseverAddressItHas) {
  run(web1);
  card("web1")->macvtapDevIs("");
  nodesOfOthers = host::Nodes{kernel.device("macvtap0")->index};
  switchOff(web1);
  janitor.sweep();
  EXPECT_THAT(kernel.macvtaps(), ElementsAre("macvtap0"));
  nodesOfOthers.emplace();
  janitor.sweep();
  EXPECT_THAT(kernel.macvtaps(), IsEmpty());
}

TEST_F(JanitorCards, LeavesADeviceOfWhichItCannotBeSaidWhoHasItOpen) {
  run(web1);
  card("web1")->macvtapDevIs("");
  nodesAreKnown = false;
  switchOff(web1);
  EXPECT_THAT(kernel.macvtaps(), ElementsAre("macvtap0"));
  nodesAreKnown = true;
  nodesOfOthers.reset();
  janitor.sweep();
  EXPECT_THAT(kernel.macvtaps(), ElementsAre("macvtap0"));
}

TEST_F(JanitorCards, DeletesWhatARemovedVmHadWithoutTheAgentsKnowing) {
  run(web1);
  card("web1")->macvtapDevIs("");
  locked([&] {
    janitor.switchingOff("web1");
    config->vmConfigDel("web1");
    janitor.switchedOff("web1");
  });
  EXPECT_THAT(kernel.macvtaps(), IsEmpty());
}

TEST_F(JanitorCards, HasNothingDeletedWhileTheKernelDoesNotAnswer) {
  passTheNameOn();
  kernelAnswers = false;
  switchOff(web1);
  EXPECT_THAT(deletions(), ElementsAre("link del (no name)"));
  EXPECT_EQ(macOf("macvtap0"), secondMac);
}

TEST_F(JanitorCards, DeletesAtTheNextSweepWhatWasLeftWhileTheKernelDidNotAnswer) {
  run(web1);
  kernelAnswers = false;
  switchOff(web1);
  ASSERT_THAT(kernel.macvtaps(), ElementsAre("macvtap0"));
  kernelAnswers = true;
  janitor.sweep();
  EXPECT_THAT(kernel.macvtaps(), IsEmpty());
}

TEST_F(JanitorCards, AsksTheKernelNothingForAVmWithoutCards) {
  const auto plain = addVm("plain");
  run(plain);
  switchOff(plain);
  EXPECT_EQ(looks, 0);
}

TEST_F(JanitorCards, DeletesWhatACardHasOnAnInterfaceThatIsWithdrawn) {
  run(web1);
  run(web2);
  effects.take();
  janitor.handleWithdrawal("Ethernet1");
  EXPECT_THAT(deletions(), ElementsAre("janitor del macvtap0"));
  EXPECT_EQ(card("web1")->macvtapDev(), "");
  EXPECT_EQ(card("web2")->macvtapDev(), "macvtap1");
}

TEST_F(JanitorCards, LeavesAVmItsDeviceWhenTheInterfaceOfAnotherThatHadTheNameIsWithdrawn) {
  passTheNameOn();
  janitor.handleWithdrawal("Ethernet1");
  EXPECT_EQ(macOf("macvtap0"), secondMac);
  EXPECT_EQ(card("web1")->macvtapDev(), "");
}

TEST_F(JanitorCards, TakesACardItsDeviceAndOthersOfItsAddressOnly) {
  run(web1);
  run(web2);
  card("web1")->macvtapDevIs("macvtap1");
  effects.take();
  janitor.takeDevice(host::cardsOf(*vm("web1")).front());
  EXPECT_THAT(deletions(), ElementsAre("janitor del macvtap0"));
  EXPECT_EQ(card("web1")->macvtapDev(), "");
  EXPECT_EQ(macOf("macvtap1"), secondMac);
}

TEST_F(JanitorCards, TakesACardItsDeviceWhoeverHasItsNode) {
  run(web1);
  nodesOfOthers = host::Nodes{kernel.device("macvtap0")->index};
  effects.take();
  janitor.takeDevice(host::cardsOf(*vm("web1")).front());
  EXPECT_THAT(deletions(), ElementsAre("janitor del macvtap0"));
  EXPECT_EQ(card("web1")->macvtapDev(), "");
}

// Two VMs of one address: the one is to go, and the other was made in its stead.
class JanitorCardsOfOneAddress : public JanitorCards {
 protected:
  JanitorCardsOfOneAddress() : JanitorCards(firstMac) {}
};

TEST_F(JanitorCardsOfOneAddress, LeavesTheNewVmItsDeviceOnItsOwnInterface) {
  passTheNameOn();
  switchOff(web1);
  EXPECT_EQ(macOf("macvtap0"), firstMac);
  EXPECT_THAT(deletions(), ElementsAre("link del (no name)"));
}

}  // namespace

}  // namespace Vm::fakes
