// A guest's network card, and the machine's tables of them.
#include <fcntl.h>

#include "Vm/VmAgent/Vnic.h"
#include "Vm/VmAgent/fakes/AgentFixture.h"

namespace Vm {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const rt::EthAddr mac(rt::String("52:54:00:00:00:01"));
const rt::EthAddr otherMac(rt::String("52:54:00:00:00:02"));

uint32_t openFile() { return static_cast<uint32_t>(open("/dev/null", O_RDWR | O_CLOEXEC)); }
bool isOpen(uint32_t descriptor) { return fakes::isOpen(static_cast<int>(descriptor)); }

TEST(Vnic, IsMadeUninitialisedWithoutADevice) {
  const auto card = rt::make<Vnic>("net0", "hostnet0", mac, "Vlan100", Vnic::noFd);
  EXPECT_EQ(card->nicId(), "net0");
  EXPECT_EQ(card->backendId(), "hostnet0");
  EXPECT_EQ(card->macAddr(), mac);
  EXPECT_EQ(card->backendDev(), "Vlan100");
  EXPECT_TRUE(card->macvtapDev().empty());
  EXPECT_EQ(static_cast<int>(card->macvtapFd()), -1);
  EXPECT_EQ(card->status(), Vnic::linkUninitialized);
  EXPECT_FALSE(card->linkDownPending());
}

TEST(Vnic, ClosesItsTapWhenItEnds) {
  const uint32_t tap = openFile();
  auto card = rt::make<Vnic>("net0", "hostnet0", mac, "Vlan100", tap);
  ASSERT_TRUE(isOpen(tap));
  card = nullptr;
  EXPECT_FALSE(isOpen(tap));
}

TEST(Vnic, ClosesNoTapThatItForgot) {
  const uint32_t tap = openFile();
  auto card = rt::make<Vnic>("net0", "hostnet0", mac, "Vlan100", tap);
  card->macvtapFdIs(Vnic::noFd);
  card = nullptr;
  EXPECT_TRUE(isOpen(tap));
  close(static_cast<int>(tap));
}

TEST(Vnic, HasLinkStatesOfOneByteInOrderWithTheirNames) {
  EXPECT_EQ(sizeof(Vnic::LinkStatus), 1u);
  const std::vector<std::string> names{"linkUninitialized", "linkDown", "linkGoingDown",
                                       "linkGoingUp", "linkUp"};
  for (size_t i = 0; i < names.size(); ++i) {
    const auto state = static_cast<Vnic::LinkStatus>(i);
    EXPECT_EQ(rt::toText(state), names[i]);
    EXPECT_EQ(rt::fromText<Vnic::LinkStatus>(names[i]), state);
  }
}

TEST(Vnic, ListsItsAttributesAndReadsAndWritesThemAsText) {
  const auto card = rt::make<Vnic>("net0", "hostnet0", mac, "Vlan100", Vnic::noFd);
  EXPECT_EQ(listing(*card),
            "[nicId] [backendId] [macAddr] backendDev macvtapDev macvtapFd status "
            "linkDownPending");
  EXPECT_EQ(rt::attributeText(*card, "macAddr"), "52:54:00:00:00:01");
  EXPECT_EQ(rt::attributeText(*card, "macvtapFd"), "4294967295");
  rt::attributeTextIs(*card, "status", "linkGoingUp");
  EXPECT_EQ(card->status(), Vnic::linkGoingUp);
  rt::attributeTextIs(*card, "linkDownPending", "true");
  EXPECT_TRUE(card->linkDownPending());
  EXPECT_THROW(rt::attributeTextIs(*card, "nicId", "net1"), rt::AttributeException);
}

class VnicTables : public AgentFixture {
 protected:
  void SetUp() override {
    start();
    addVm("web1");
    machine = vm("web1");
    recorder->watch(machine);
  }
  Vnic::Ptr add(const char* nicId, const char* backendId) {
    return machine->vnicIs(nicId, backendId, mac, "Vlan100", Vnic::noFd);
  }
  // What is refused of that card, which stays as it is.
  std::string refused(const char* backendId, const rt::EthAddr& address) {
    const auto card = machine->vnic("net0");
    std::string attribute;
    try {
      machine->vnicIs("net0", backendId, address, "Vlan200", 77);
    } catch (const rt::ReinstantiationException& e) {
      attribute = e.attribute().str();
      EXPECT_EQ(std::string(e.what()),
                "Vm::Vnic::" + attribute + ": it exists already with a different value");
    }
    EXPECT_EQ(machine->vnic("net0"), card);
    EXPECT_EQ(card->backendId(), "hostnet0");
    EXPECT_EQ(card->macAddr(), mac);
    EXPECT_EQ(card->backendDev(), "Vlan100");
    EXPECT_EQ(card->macvtapFd(), Vnic::noFd);
    return attribute;
  }
  VmConfigSm::Ptr machine;
};

TEST_F(VnicTables, AddACardUnderItsId) {
  const auto card = add("net0", "hostnet0");
  EXPECT_EQ(machine->vnic("net0"), card);
  EXPECT_EQ(machine->vnics().size(), 1u);
  EXPECT_THAT(effects.take(), ElementsAre("VmConfigSm.vnic[net0]"));
}

TEST_F(VnicTables, MoveAnExistingCardToAnotherInterfaceAndKeepTheRest) {
  const auto card = add("net0", "hostnet0");
  card->statusIs(Vnic::linkUp);
  card->macvtapDevIs("macvtap3");
  card->linkDownPendingIs(true);
  effects.take();
  EXPECT_EQ(machine->vnicIs("net0", "hostnet0", mac, "Vlan200", Vnic::noFd), card);
  EXPECT_EQ(card->backendDev(), "Vlan200");
  EXPECT_EQ(card->status(), Vnic::linkUp);
  EXPECT_EQ(card->macvtapDev(), "macvtap3");
  EXPECT_TRUE(card->linkDownPending());
  EXPECT_THAT(effects.take(), IsEmpty());
}

TEST_F(VnicTables, OverwriteAnExistingCardsTapWithoutClosingIt) {
  const auto card = add("net0", "hostnet0");
  const uint32_t tap = openFile();
  card->macvtapFdIs(tap);
  add("net0", "hostnet0");
  EXPECT_EQ(card->macvtapFd(), Vnic::noFd);
  EXPECT_TRUE(isOpen(tap));
  machine->vnicIs("net0", "hostnet0", mac, "Vlan100", tap);
  EXPECT_EQ(card->macvtapFd(), tap);
}

TEST_F(VnicTables, RefuseAnotherBackendForAnExistingCard) {
  add("net0", "hostnet0");
  EXPECT_EQ(refused("hostnet1", mac), "backendId");
}

TEST_F(VnicTables, RefuseAnotherMacAddressForAnExistingCard) {
  add("net0", "hostnet0");
  EXPECT_EQ(refused("hostnet0", otherMac), "macAddr");
}

TEST_F(VnicTables, RefuseTheBackendFirstWhereBothDiffer) {
  add("net0", "hostnet0");
  EXPECT_EQ(refused("hostnet1", otherMac), "backendId");
}

TEST_F(VnicTables, ReturnACardThatIsDeleted) {
  const auto card = add("net0", "hostnet0");
  EXPECT_EQ(machine->vnicDel("net0"), card);
  EXPECT_EQ(machine->vnicDel("net0"), nullptr);
  EXPECT_EQ(machine->vnic("net0"), nullptr);
  EXPECT_EQ(card->references(), 1u);
}

TEST_F(VnicTables, DeleteAllCards) {
  add("net0", "hostnet0");
  add("net1", "hostnet1");
  machine->vnicDelAll();
  EXPECT_TRUE(machine->vnics().empty());
}

TEST_F(VnicTables, SetRepointAndDeleteAPendingCard) {
  const auto first = add("net0", "hostnet0");
  const auto second = add("net1", "hostnet1");
  effects.take();
  machine->pendingVnicIs(4, first);
  EXPECT_EQ(machine->pendingVnic(4), first);
  machine->pendingVnicIs(4, second);
  EXPECT_EQ(machine->pendingVnic(4), second);
  EXPECT_EQ(machine->pendingVnics().size(), 1u);
  machine->pendingVnicIs(4, nullptr);
  EXPECT_TRUE(machine->pendingVnics().empty());
  EXPECT_THAT(effects.take(), testing::Each("VmConfigSm.pendingVnic[4]"));
}

TEST_F(VnicTables, DoNothingForANullPendingCardThatIsAbsent) {
  machine->pendingVnicIs(4, nullptr);
  EXPECT_TRUE(machine->pendingVnics().empty());
  EXPECT_THAT(effects.take(), IsEmpty());
}

TEST_F(VnicTables, ReturnAPendingCardThatIsDeleted) {
  const auto card = add("net0", "hostnet0");
  machine->pendingVnicIs(0, card);
  machine->pendingVnicIs(0xFFFFFFFF, card);
  EXPECT_EQ(machine->pendingVnicDel(0), card);
  EXPECT_EQ(machine->pendingVnicDel(0), nullptr);
  machine->pendingVnicDelAll();
  EXPECT_TRUE(machine->pendingVnics().empty());
}

}  // namespace

}  // namespace Vm
