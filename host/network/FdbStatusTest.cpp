// The static MAC entries, as records of the host.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "host/network/FdbStatus.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

const Bridging::VlanId vlan100(100);
const Bridging::VlanId vlan7(7);
const rt::EthAddr macA = *rt::EthAddr::fromText("52:54:00:00:00:0a");
const rt::EthAddr macB = *rt::EthAddr::fromText("52:54:00:00:00:0b");

Bridging::ConfiguredHost host(const rt::EthAddr& mac, const char* intf = "Cpu", uint8_t type = 4) {
  return {.address = mac, .intf = rt::IntfId(intf), .entryType = type};
}

class FdbStatusTest : public testing::Test {
 protected:
  FdbStatus::Ptr start() { return rt::make<FdbStatus>(config, status); }
  // Key -> "INTERFACE TYPE".
  std::map<std::string, std::string> shown() const {
    std::map<std::string, std::string> all;
    for (const auto& [key, entry] : status->fdbEntries())
      all[key.str()] = entry->intf().str() + " " + std::to_string(entry->entryType());
    return all;
  }

  const Bridging::Input::Config::Ptr config = rt::make<Bridging::Input::Config>();
  const HostStatus::Ptr status = rt::make<HostStatus>();
};

TEST_F(FdbStatusTest, ShowsEachEntryUnderItsVlanAndAddress) {
  const auto fdb = start();
  config->fdbConfigIs(vlan100)->configuredHostIs(host(macA));
  config->fdbConfigIs(vlan7)->configuredHostIs(host(macA, "Ethernet1", 3));
  EXPECT_THAT(shown(), ElementsAre(Pair("100/52:54:00:00:00:0a", "Cpu 4"),
                                   Pair("7/52:54:00:00:00:0a", "Ethernet1 3")));
}

TEST_F(FdbStatusTest, ShowsWhatWasThereFirst) {
  config->fdbConfigIs(vlan100)->configuredHostIs(host(macA));
  const auto fdb = start();
  EXPECT_EQ(shown().size(), 1U);
}

TEST_F(FdbStatusTest, FollowsAnEntryThatIsReplaced) {
  const auto fdb = start();
  config->fdbConfigIs(vlan100)->configuredHostIs(host(macA));
  config->fdbConfig(vlan100)->configuredHostIs(host(macA, "Ethernet2", 5));
  EXPECT_THAT(shown(), ElementsAre(Pair("100/52:54:00:00:00:0a", "Ethernet2 5")));
}

TEST_F(FdbStatusTest, ForgetsAnEntryThatIsGone) {
  const auto fdb = start();
  const auto vlan = config->fdbConfigIs(vlan100);
  vlan->configuredHostIs(host(macA));
  vlan->configuredHostIs(host(macB));
  vlan->configuredHostDel(macA);
  EXPECT_THAT(shown(), ElementsAre(Pair("100/52:54:00:00:00:0b", "Cpu 4")));
}

TEST_F(FdbStatusTest, ForgetsTheEntriesOfAVlanThatIsGone) {
  const auto fdb = start();
  const auto vlan = config->fdbConfigIs(vlan100);
  vlan->configuredHostIs(host(macA));
  config->fdbConfigIs(vlan7)->configuredHostIs(host(macB));
  config->fdbConfigDel(vlan100);
  vlan->configuredHostIs(host(macB));  // nobody's any more
  EXPECT_THAT(shown(), ElementsAre(Pair("7/52:54:00:00:00:0b", "Cpu 4")));
}

TEST_F(FdbStatusTest, FollowsTheVlanThatTookAnothersPlace) {
  const auto fdb = start();
  config->fdbConfigIs(vlan100)->configuredHostIs(host(macA));
  config->fdbConfigDel(vlan100);
  config->fdbConfigIs(vlan100)->configuredHostIs(host(macB));
  EXPECT_THAT(shown(), ElementsAre(Pair("100/52:54:00:00:00:0b", "Cpu 4")));
}

TEST_F(FdbStatusTest, IsSilentAfterItsEnd) {
  start();
  config->fdbConfigIs(vlan100)->configuredHostIs(host(macA));
  EXPECT_THAT(shown(), IsEmpty());
}

}  // namespace
}  // namespace host
