// A VM's tables of cards.
#include <unistd.h>

#include "Vm/VmAgent/Vnic.h"
#include "Vm/VmAgent/fakes/NicWorld.h"

namespace Vm::fakes {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class VnicTable : public NicTest {
 protected:
  VnicTable() { start(); }
  Vnic::Ptr make(const char* backendDev = "Vlan100", uint32_t fd = Vnic::noFd) {
    return vm()->vnicIs("net0", "hostnet0", mac, backendDev, fd);
  }
  const rt::EthAddr mac{rt::String(firstMac)};
};

TEST_F(VnicTable, StartsACardUninitialized) {
  const Vnic::Ptr made = make();
  EXPECT_EQ(made->status(), Vnic::linkUninitialized);
  EXPECT_EQ(made->macvtapDev(), "");
  EXPECT_FALSE(made->linkDownPending());
  EXPECT_EQ(made->macvtapFd(), Vnic::noFd);
  EXPECT_EQ(card(), made);
}

TEST_F(VnicTable, MovesAnExistingCardAndKeepsItsStatus) {
  const Vnic::Ptr made = make();
  made->statusIs(Vnic::linkUp);
  made->macvtapDevIs("macvtap5");
  EXPECT_EQ(make("Vlan200"), made);
  EXPECT_EQ(made->backendDev(), "Vlan200");
  EXPECT_EQ(made->status(), Vnic::linkUp);
  EXPECT_EQ(made->macvtapDev(), "macvtap5");
}

TEST_F(VnicTable, RefusesAnotherBackendForAnExistingCard) {
  make();
  try {
    vm()->vnicIs("net0", "hostnet1", mac, "Vlan200", 9);
    ADD_FAILURE() << "no exception";
  } catch (const rt::ReinstantiationException& e) {
    EXPECT_EQ(e.attribute(), "backendId");
  }
  EXPECT_EQ(card()->backendId(), "hostnet0");
  EXPECT_EQ(card()->backendDev(), "Vlan100");
}

TEST_F(VnicTable, RefusesAnotherAddressForAnExistingCardAndLeavesItUnchanged) {
  make();
  try {
    vm()->vnicIs("net0", "hostnet0", rt::EthAddr(rt::String(secondMac)), "Vlan200", 9);
    ADD_FAILURE() << "no exception";
  } catch (const rt::ReinstantiationException& e) {
    EXPECT_EQ(e.attribute(), "macAddr");
  }
  EXPECT_EQ(card()->macAddr(), mac);
  EXPECT_EQ(card()->backendDev(), "Vlan100");
  EXPECT_EQ(card()->macvtapFd(), Vnic::noFd);
}

TEST_F(VnicTable, OverwritesADescriptorWithoutClosingIt) {
  const OwnedDescriptor tap = fileWith("tap");
  make("Vlan100", static_cast<uint32_t>(static_cast<int>(tap)));
  make();
  EXPECT_EQ(card()->macvtapFd(), Vnic::noFd);
  EXPECT_TRUE(isOpen(tap));
}

TEST_F(VnicTable, ClosesTheTapOfACardThatEnds) {
  const int tap = fileWith("tap").release();
  make("Vlan100", static_cast<uint32_t>(tap));
  EXPECT_EQ(vm()->vnicDel("net0")->macvtapFd(), static_cast<uint32_t>(tap));
  EXPECT_FALSE(isOpen(tap));
}

TEST_F(VnicTable, GivesNothingForACardThatIsNotThere) {
  EXPECT_EQ(vm()->vnicDel("net9"), nullptr);
  EXPECT_EQ(vm()->pendingVnicDel(9), nullptr);
}

TEST_F(VnicTable, IsEmptiedAtOnce) {
  make();
  vm()->vnicDelAll();
  EXPECT_TRUE(vm()->vnics().empty());
}

TEST_F(VnicTable, SetsRepointsAndRemovesAPendingCard) {
  const Vnic::Ptr first = make();
  const Vnic::Ptr second = vm()->vnicIs("net1", "hostnet1", mac, "Vlan100", Vnic::noFd);
  vm()->pendingVnicIs(4, first);
  vm()->pendingVnicIs(4, second);
  EXPECT_EQ(vm()->pendingVnic(4), second);
  vm()->pendingVnicIs(4, nullptr);
  EXPECT_THAT(pendingIds(), IsEmpty());
}

TEST_F(VnicTable, RemovesNothingForAnIdThatIsNotPending) {
  vm()->pendingVnicIs(4, make());
  recorder->watch(vm());
  effects.take();
  vm()->pendingVnicIs(9, nullptr);
  EXPECT_THAT(pendingIds(), ElementsAre(4));
  EXPECT_THAT(effects.take(), IsEmpty());
}

TEST_F(VnicTable, ForgetsAllPendingCardsAtOnce) {
  vm()->pendingVnicIs(4, make());
  vm()->pendingVnicIs(5, card());
  vm()->pendingVnicDelAll();
  EXPECT_THAT(pendingIds(), IsEmpty());
}

TEST_F(VnicTable, HasLinkStatusesThatAreTextBothWays) {
  const Texts names{"linkUninitialized", "linkDown", "linkGoingDown", "linkGoingUp", "linkUp"};
  for (size_t value = 0; value < names.size(); ++value) {
    const auto status = static_cast<Vnic::LinkStatus>(value);
    EXPECT_EQ(rt::toText(status), names[value]);
    EXPECT_EQ(rt::fromText<Vnic::LinkStatus>(names[value]), status);
  }
}

}  // namespace

}  // namespace Vm::fakes
