#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/base/Exception.h"
#include "runtime/fakes/ChangeRecorder.h"
#include "runtime/records/Bridging.h"

namespace Bridging {
namespace {

using Input::Config;
using Input::FdbConfig;
using rt::fakes::ChangeRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

const rt::EthAddr mac("52:54:00:12:34:56");
const ConfiguredHost host{mac, rt::IntfId("Cpu"), 4, 0x100000, false};

TEST(ConfiguredHostTest, ItsTextHasTheFieldsInTheirOrder) {
  EXPECT_EQ(host.text(), "52:54:00:12:34:56 Cpu 4 1048576 false");
}

TEST(ConfiguredHostTest, OfNothingHasNothing) {
  EXPECT_EQ(ConfiguredHost().text(), "00:00:00:00:00:00  0 0 false");
}

TEST(ConfiguredHostTest, ItsTextIsReadBack) {
  EXPECT_EQ(ConfiguredHost::fromText(host.text()), host);
  const ConfiguredHost largest{mac, rt::IntfId("Ethernet1"), 255, 4294967295, true};
  EXPECT_EQ(ConfiguredHost::fromText(largest.text()), largest);
  EXPECT_EQ(ConfiguredHost::fromText(ConfiguredHost().text()), ConfiguredHost());
}

TEST(ConfiguredHostTest, EqualsOnlyWhatHasTheSameFields) {
  ConfiguredHost other = host;
  EXPECT_EQ(other, host);
  other.aging = true;
  EXPECT_NE(other, host);
}

class MalformedHost : public testing::TestWithParam<const char*> {};

TEST_P(MalformedHost, IsRefused) { EXPECT_EQ(ConfiguredHost::fromText(GetParam()), std::nullopt); }

INSTANTIATE_TEST_SUITE_P(
    ConfiguredHostTest, MalformedHost,
    testing::Values(
        "", "52:54:00:12:34:56", "52:54:00:12:34:56 Cpu 4 1048576",
        "52:54:00:12:34:56 Cpu 4 1048576 false ", "52:54:00:12:34:56 Cpu 4 1048576 false more",
        "52:54:00:12:34:56 Cpu 4 1048576 false false", "52:54:00:12:34:56 Cpu 4 1048576 true abcd",
        "52:54:00:12:34 Cpu 4 1048576 false", "52:54:00:12:34:56 Cpu 256 1048576 false",
        "52:54:00:12:34:56 Cpu -1 1048576 false", "52:54:00:12:34:56 Cpu 4 4294967296 false",
        "52:54:00:12:34:56 Cpu 4 0x100000 false", "52:54:00:12:34:56 Cpu 4 1048576 no",
        " 52:54:00:12:34:56 Cpu 4 1048576 false", "52:54:00:12:34:56  Cpu 4 1048576 false"));

// The hosts of one VLAN.

TEST(FdbConfigTest, AHostIsFoundUnderItsAddress) {
  const auto vlan = rt::make<FdbConfig>(VlanId(100));
  vlan->configuredHostIs(host);
  EXPECT_EQ(vlan->vlanId(), VlanId(100));
  EXPECT_TRUE(vlan->configuredHostHas(mac));
  EXPECT_EQ(vlan->configuredHost(mac), host);
  EXPECT_EQ(vlan->configuredHost(rt::EthAddr("52:54:00:00:00:01")), std::nullopt);
}

TEST(FdbConfigTest, AnotherHostReplacesTheOneWithItsAddress) {
  const auto vlan = rt::make<FdbConfig>(VlanId(100));
  vlan->configuredHostIs(host);
  ConfiguredHost other = host;
  other.intf = rt::IntfId("Ethernet1");
  const auto recorder = rt::make<ChangeRecorder>();
  recorder->watch(vlan);
  vlan->configuredHostIs(host);
  EXPECT_THAT(recorder->take(), IsEmpty());
  vlan->configuredHostIs(other);
  EXPECT_THAT(recorder->take(),
              ElementsAre("Bridging::Input::FdbConfig.configuredHost[52:54:00:12:34:56]"));
  EXPECT_EQ(vlan->configuredHost(mac), other);
  EXPECT_EQ(vlan->configuredHosts().size(), 1U);
}

TEST(FdbConfigTest, AHostIsMountedUnderItsOwnAddressOnly) {
  const auto vlan = rt::make<FdbConfig>(VlanId(100));
  vlan->configuredHostMount(mac, host);
  EXPECT_EQ(vlan->configuredHost(mac), host);
  vlan->configuredHostDelAll();
  EXPECT_THROW(vlan->configuredHostMount(rt::EthAddr(), host), rt::RangeException);
  EXPECT_TRUE(vlan->configuredHosts().empty());
}

TEST(FdbConfigTest, RemovalIsToldOnce) {
  const auto vlan = rt::make<FdbConfig>(VlanId(100));
  vlan->configuredHostIs(host);
  const auto recorder = rt::make<ChangeRecorder>();
  recorder->watch(vlan);
  vlan->configuredHostDel(mac);
  vlan->configuredHostDel(mac);
  EXPECT_THAT(recorder->take(),
              ElementsAre("Bridging::Input::FdbConfig.configuredHost[52:54:00:12:34:56]"));
  EXPECT_FALSE(vlan->configuredHostHas(mac));
}

TEST(FdbConfigTest, AllAreRemoved) {
  const auto vlan = rt::make<FdbConfig>(VlanId(100));
  vlan->configuredHostIs(host);
  vlan->configuredHostDelAll();
  EXPECT_TRUE(vlan->configuredHosts().empty());
}

TEST(FdbConfigTest, ItsHostsAreReadAndRemovedByName) {
  const auto vlan = rt::make<FdbConfig>(VlanId(100));
  vlan->configuredHostIs(host);
  EXPECT_EQ(rt::attributeText(*vlan, "vlanId"), "100");
  const rt::AttributeInfo& hosts = *vlan->type().find("configuredHost");
  EXPECT_EQ(hosts.keyType, "EthAddr");
  EXPECT_EQ(hosts.valueType, "Bridging::ConfiguredHost");
  EXPECT_THAT(hosts.keys(*vlan), ElementsAre("52:54:00:12:34:56"));
  EXPECT_EQ(hosts.memberText(*vlan, "52:54:00:12:34:56"), "52:54:00:12:34:56 Cpu 4 1048576 false");
  EXPECT_EQ(hosts.memberText(*vlan, "52:54:00:00:00:01"), "");
  EXPECT_THROW(hosts.memberText(*vlan, "no address"), rt::AttributeException);
  hosts.memberDel(*vlan, "52:54:00:12:34:56");
  EXPECT_FALSE(vlan->configuredHostHas(mac));
}

// All VLANs.

TEST(BridgingConfigTest, VlansAreKeyedByNumber) {
  const auto config = rt::make<Config>();
  const auto vlan = config->fdbConfigIs(VlanId(100));
  EXPECT_EQ(vlan->vlanId(), VlanId(100));
  EXPECT_EQ(config->fdbConfig(VlanId(100)), vlan);
  EXPECT_EQ(config->fdbConfigIs(VlanId(100)), vlan);
  EXPECT_TRUE(config->fdbConfigHas(VlanId(100)));
  EXPECT_EQ(config->fdbConfig(VlanId(101)), nullptr);
}

TEST(BridgingConfigTest, RemovalReleasesTheVlan) {
  const auto config = rt::make<Config>();
  const auto vlan = config->fdbConfigIs(VlanId(100));
  EXPECT_EQ(config->fdbConfigDel(VlanId(100)), vlan);
  EXPECT_EQ(vlan->references(), 1U);
  EXPECT_FALSE(config->fdbConfigHas(VlanId(100)));
  config->fdbConfigIs(VlanId(1));
  config->fdbConfigDelAll();
  EXPECT_TRUE(config->fdbConfigs().empty());
}

TEST(BridgingConfigTest, AMountedVlanIsTheOneUnderItsNumber) {
  const auto config = rt::make<Config>();
  const auto vlan = rt::make<FdbConfig>(VlanId(4094));
  vlan->configuredHostIs(host);
  config->fdbConfigMount(vlan);
  EXPECT_EQ(config->fdbConfig(VlanId(4094)), vlan);
  EXPECT_THROW(config->fdbConfigMount(rt::make<FdbConfig>(VlanId(4094))),
               rt::ReinstantiationException);
}

TEST(BridgingConfigTest, VlansAreListedMadeAndRemovedByName) {
  const auto config = rt::make<Config>();
  const rt::AttributeInfo& vlans = *config->type().find("fdbConfig");
  vlans.memberIs(*config, "100", [](rt::Entity&) {});
  vlans.memberIs(*config, "20", [](rt::Entity&) {});
  EXPECT_THAT(vlans.keys(*config), ElementsAre("20", "100"));  // in the order of the numbers
  EXPECT_THROW(vlans.memberIs(*config, "4095", [](rt::Entity&) {}), rt::AttributeException);
  vlans.memberDel(*config, "20");
  EXPECT_THAT(vlans.keys(*config), ElementsAre("100"));
}

}  // namespace
}  // namespace Bridging
