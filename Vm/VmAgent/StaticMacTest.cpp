// The cards' static MAC entries in the bridging configuration.
#include "Vm/VmAgent/fakes/NicWorld.h"

namespace Vm::fakes {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class StaticMac : public NicTest {
 protected:
  void interfaceComes(const char* name) {
    locked([&] { interfaceIs(name, 7); });
  }
  void interfaceGoes(const char* name) {
    locked([&] { interfaceDel(name, 7); });
  }
  // A guest with a card on that interface, attached.
  void runOn(const char* intfName, const char* mac = firstMac) {
    addCard("nic00", intfName, mac);
    run();
    interfaceComes(intfName);
    converse();
  }
};

TEST_F(StaticMac, OfACardOnAVlanSendsItsFramesToTheControlPlane) {
  runOn("Vlan100");
  const auto host =
      bridging->fdbConfig(Bridging::VlanId(100))->configuredHost(rt::EthAddr(rt::String(firstMac)));
  ASSERT_TRUE(host);
  EXPECT_EQ(host->address, rt::EthAddr(rt::String(firstMac)));
  EXPECT_EQ(host->intf, rt::IntfId("Cpu"));
  EXPECT_EQ(host->entryType, 4);
  EXPECT_EQ(host->sources, 0x100000U);
  EXPECT_FALSE(host->aging);
}

TEST_F(StaticMac, RemovedTakesItsVlanAlong) {
  runOn("Vlan100");
  interfaceGoes("Vlan100");
  EXPECT_THAT(vlans(), IsEmpty());
}

TEST_F(StaticMac, OfTwoVmsShareTheirVlan) {
  const auto db1 = addVm("db1");
  AgentWorld::addCard(db1, "nic00", secondMac, "Vlan100");
  db1->enabledIs(true);
  runOn("Vlan100");
  converse("db1");
  EXPECT_THAT(vlans(), ElementsAre("100"));
  EXPECT_THAT(configuredHosts(), ElementsAre("100 52:54:00:12:34:56 Cpu 4 1048576 false",
                                             "100 52:54:00:12:34:57 Cpu 4 1048576 false"));
  disable();
  EXPECT_THAT(configuredHosts(), ElementsAre("100 52:54:00:12:34:57 Cpu 4 1048576 false"));
  locked([&] { db1->enabledIs(false); });
  EXPECT_THAT(vlans(), IsEmpty());
}

TEST_F(StaticMac, IsTracedWhenItIsAddedAndRemoved) {
  addCard();
  run();
  forget();
  interfaceComes("Vlan100");
  converse();
  const auto added = traces.take(8);
  const std::string signature =
      "void Vm::VmConfigSm::populateStaticMacAddress(const String&, const String&)";
  EXPECT_THAT(added, testing::IsSupersetOf(
                         {signature + " macAddr 52:54:00:12:34:56 kernelDev Vlan100 for web1",
                          signature + " kernelDev Vlan100 vlanId 100 ret 1",
                          signature + ": added static macAddr=52:54:00:12:34:56, vlandId=100"}));
  interfaceGoes("Vlan100");
  EXPECT_THAT(traces.take(8),
              testing::IsSupersetOf(
                  {std::string("void Vm::VmConfigSm::unpopulateStaticMacAddress(const String&, "
                               "const String&) macAddr = 52:54:00:12:34:56 kernelDev = Vlan100 "
                               "for web1"),
                   std::string("unpopulateStaticMacAddress: removed macAddr =52:54:00:12:34:56 "
                               "vlanId=100")}));
}

TEST_F(StaticMac, ThatIsThereAlreadyIsLeftUntouched) {
  const Bridging::ConfiguredHost theirs{rt::EthAddr(rt::String(firstMac)), rt::IntfId("Port1"), 1,
                                        2, true};
  bridging->fdbConfigIs(Bridging::VlanId(100))->configuredHostIs(theirs);
  runOn("Vlan100");
  EXPECT_EQ(bridging->fdbConfig(Bridging::VlanId(100))->configuredHost(theirs.address), theirs);
  EXPECT_THAT(traces.take(8), testing::Not(Contains(HasSubstr(": added static macAddr="))));
}

TEST_F(StaticMac, OfOthersInTheVlanStay) {
  const Bridging::ConfiguredHost theirs{rt::EthAddr(rt::String("52:54:00:00:00:99")),
                                        rt::IntfId("Port1"), 1, 2, true};
  bridging->fdbConfigIs(Bridging::VlanId(100))->configuredHostIs(theirs);
  runOn("Vlan100");
  interfaceGoes("Vlan100");
  EXPECT_THAT(configuredHosts(), ElementsAre("100 52:54:00:00:00:99 Port1 1 2 true"));
}

TEST_F(StaticMac, OfAGroupAddressIsRefused) {
  addCard("nic00", "Vlan100", "53:54:00:12:34:56");
  run();
  interfaceComes("Vlan100");
  EXPECT_THAT(failures(),
              ElementsAre("populateStaticMacAddress FAIL: Invalid mac address: 53:54:00:12:34:56"));
  EXPECT_THAT(vlans(), IsEmpty());
  EXPECT_EQ(card()->status(), Vnic::linkGoingUp);  // attached all the same
}

TEST_F(StaticMac, OfAGroupAddressIsRefusedOffAVlanToo) {
  addCard("nic00", "Ethernet1", "53:54:00:12:34:56");
  run();
  interfaceComes("Ethernet1");
  EXPECT_THAT(failures(),
              ElementsAre("populateStaticMacAddress FAIL: Invalid mac address: 53:54:00:12:34:56"));
}

TEST_F(StaticMac, OfAnInterfaceWithoutAVlanIsTracedWithWhatWasScanned) {
  addCard("nic00", "Ethernet1");
  addCard("nic01", "Vlan", secondMac);
  run();
  interfaceComes("Ethernet1");
  locked([&] { interfaceIs("Vlan", 8); });
  const std::string signature =
      "void Vm::VmConfigSm::populateStaticMacAddress(const String&, const String&)";
  EXPECT_THAT(traces.take(8),
              testing::IsSupersetOf({signature + " kernelDev Ethernet1 vlanId 0 ret 0",
                                     signature + " kernelDev Vlan vlanId 0 ret -1"}));
}

struct Name {
  const char* interface;
  const char* vlan;  // whose hosts then are configured; null: none
};

class StaticMacName : public StaticMac, public testing::WithParamInterface<Name> {};

TEST_P(StaticMacName, DecidesWhetherThereIsAnEntryAndWhere) {
  runOn(GetParam().interface);
  EXPECT_THAT(failures(), IsEmpty());
  EXPECT_EQ(card()->status(), Vnic::linkUp);
  EXPECT_EQ(vlans(), GetParam().vlan ? Texts{GetParam().vlan} : Texts{});
  disable();
  EXPECT_THAT(vlans(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Interfaces, StaticMacName,
                         testing::Values(Name{"Vlan1", "1"}, Name{"Vlan4094", "4094"},
                                         Name{"Vlan0100", "100"}, Name{"Vlan000100", "100"},
                                         Name{"Vlan+7", "7"}, Name{"Vlan100x", "100"},
                                         Name{"Vlan 100", "100"}, Name{"Vlan", nullptr},
                                         Name{"Vlanx", nullptr}, Name{"vlan100", nullptr},
                                         Name{"Ethernet1", nullptr}, Name{"et1.Vlan100", nullptr}),
                         [](const auto& test) { return "N" + std::to_string(test.index); });

class StaticMacOutOfRange : public StaticMac, public testing::WithParamInterface<const char*> {
 protected:
  static void expectRangeError(const std::function<void()>& action) {
    try {
      action();
      ADD_FAILURE() << "no exception";
    } catch (const rt::RangeException& e) {
      EXPECT_STREQ(e.what(), "Bridging::VlanId::value < 1 or > 4094 not allowed");
    }
  }
};

TEST_P(StaticMacOutOfRange, IsThrownToWhoeverToldOfTheInterface) {
  addCard("nic00", GetParam());
  run();
  expectRangeError([&] { interfaceComes(GetParam()); });
  EXPECT_THAT(vlans(), IsEmpty());
}

TEST_P(StaticMacOutOfRange, LeavesTheCardOtherwiseAttached) {
  addCard("nic00", GetParam());
  run();
  expectRangeError([&] { interfaceComes(GetParam()); });
  EXPECT_EQ(card()->status(), Vnic::linkGoingUp);
  EXPECT_EQ(card()->macvtapDev(), "macvtap0");
  EXPECT_EQ(static_cast<int>(card()->macvtapFd()), kernel.tapOf("macvtap0"));
  converse();
  EXPECT_EQ(card()->status(), Vnic::linkUp);
}

TEST_P(StaticMacOutOfRange, AtTheStartKeepsTheGuestFromRunning) {
  addCard("nic00", GetParam());
  interfaceComes(GetParam());
  enable();
  expectRangeError([&] { connectMonitor(); });
  EXPECT_EQ(vm()->monitorInput()->cmd(), MonitorCommand::backendAdd);  // no startVm after it
  EXPECT_EQ(card()->status(), Vnic::linkGoingUp);
}

TEST_P(StaticMacOutOfRange, KeepsTheVmFromBeingSwitchedOff) {
  addCard("nic00", GetParam());
  run();
  expectRangeError([&] { disable(); });
  EXPECT_TRUE(status()->enabled());
  EXPECT_TRUE(card());
  EXPECT_TRUE(vm()->monSm());
  EXPECT_THAT(effects.take(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Vlans, StaticMacOutOfRange,
                         testing::Values("Vlan0", "Vlan4095", "Vlan-1", "Vlan65637"),
                         [](const auto& test) { return "N" + std::to_string(test.index); });

TEST_F(StaticMac, OfAllCardsAreRemovedAtOnce) {
  addCard("nic00");
  addCard("nic01", "Vlan200", secondMac);
  interfaceComes("Vlan100");
  locked([&] { interfaceIs("Vlan200", 8); });
  run();
  ASSERT_THAT(vlans(), ElementsAre("100", "200"));
  forget();
  locked([&] { vm()->unpopulateAllStaticMacs(); });
  EXPECT_THAT(vlans(), IsEmpty());
  EXPECT_EQ(vm()->vnics().size(), 2U);
  const auto said = traces.take(8);
  EXPECT_EQ(said.front(), "void Vm::VmConfigSm::unpopulateAllStaticMacs() for web1");
  EXPECT_EQ(said.size(), 5U);
}

TEST_F(StaticMac, RemovedTwiceIsRemovedOnce) {
  runOn("Vlan100");
  locked([&] {
    vm()->unpopulateAllStaticMacs();
    vm()->unpopulateAllStaticMacs();
  });
  EXPECT_THAT(vlans(), IsEmpty());
}

TEST_F(StaticMac, RemovalDropsAVlanWithoutAnyHost) {
  runOn("Vlan100");
  bridging->fdbConfig(Bridging::VlanId(100))->configuredHostDelAll();
  interfaceGoes("Vlan100");
  EXPECT_THAT(vlans(), IsEmpty());
}

// The name of the card's interface decides, not that of any interface with such a device.
TEST_F(StaticMac, IsNotSoughtAmongTheOtherInterfaces) {
  kernel.deviceIs("Vlan100", 7);
  locked([&] {
    allIntfStatusLocalDir->intfStatusLocalIs(rt::IntfId("Vlan300"), {"Vlan100", {}});
    kniStatus->interfaceIs({rt::NamespaceName(), 7}, "Vlan100");
  });
  addCard("nic00", "Vlan300");
  run();
  EXPECT_THAT(vlans(), ElementsAre("300"));
}

}  // namespace

}  // namespace Vm::fakes
