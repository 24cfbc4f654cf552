#include <gtest/gtest.h>

#include "model/ConfigIndex.h"

namespace model {
namespace {

const rt::EthAddr macA("52:54:00:00:00:0a");
const rt::EthAddr macB("52:54:00:00:00:0b");

Vm::VmConfig::Ptr vmWith(const char* name, std::vector<rt::EthAddr> macs, uint32_t port = 0) {
  auto vm = rt::make<Vm::VmConfig>(name);
  vm->enabledIs(true);
  vm->vncPortIs(port);
  for (size_t i = 0; i < macs.size(); ++i)
    vm->vnicConfigIs("nic0" + rt::toText(i))->macAddrIs(macs[i]);
  return vm;
}

CardName card(const char* vm, const char* key) { return {vm, key}; }

TEST(ConfigIndex, FindsNothingWhenItIsEmpty) {
  EXPECT_EQ(ConfigIndex().cardWith(macA, ""), std::nullopt);
  EXPECT_EQ(ConfigIndex().vmWithPort(5900, ""), std::nullopt);
}

TEST(ConfigIndex, KnowsTheVmsOfAConfiguration) {
  const auto config = rt::make<Vm::Config>();
  config->vmConfigMount(vmWith("web1", {macA}, 5900));
  config->vmConfigMount(vmWith("web2", {macB}, 5901));
  const ConfigIndex index(*config);
  EXPECT_EQ(index.cardWith(macA, "new"), card("web1", "nic00"));
  EXPECT_EQ(index.cardWith(macB, "new"), card("web2", "nic00"));
  EXPECT_EQ(index.vmWithPort(5900, "new"), "web1");
  EXPECT_EQ(index.vmWithPort(5901, "new"), "web2");
  EXPECT_EQ(index.vmWithPort(5902, "new"), std::nullopt);
}

TEST(ConfigIndex, LeavesOutTheVmThatAsks) {
  ConfigIndex index;
  index.vmIs(*vmWith("web1", {macA, macA}, 5900));
  EXPECT_EQ(index.cardWith(macA, "web1"), std::nullopt);
  EXPECT_EQ(index.vmWithPort(5900, "web1"), std::nullopt);
}

TEST(ConfigIndex, FindsTheOtherWhenTheVmThatAsksHasTheSame) {
  ConfigIndex index;
  for (const char* name : {"web1", "web10", "web2"}) index.vmIs(*vmWith(name, {macA, macA}, 5900));
  EXPECT_EQ(index.cardWith(macA, "web1"), card("web10", "nic00"));
  EXPECT_EQ(index.cardWith(macA, "web10"), card("web1", "nic00"));
  EXPECT_EQ(index.cardWith(macA, "web2"), card("web1", "nic00"));
  EXPECT_EQ(index.vmWithPort(5900, "web1"), "web10");
  EXPECT_EQ(index.vmWithPort(5900, "web2"), "web1");
}

TEST(ConfigIndex, ForgetsAVmThatIsRemoved) {
  ConfigIndex index;
  index.vmIs(*vmWith("web1", {macA}, 5900));
  index.vmIs(*vmWith("web2", {macA}, 5900));
  index.vmDel("web1");
  EXPECT_EQ(index.cardWith(macA, "new"), card("web2", "nic00"));
  EXPECT_EQ(index.vmWithPort(5900, "new"), "web2");
  index.vmDel("web2");
  EXPECT_EQ(index.cardWith(macA, "new"), std::nullopt);
  EXPECT_EQ(index.vmWithPort(5900, "new"), std::nullopt);
  index.vmDel("web2");  // once more does nothing
}

TEST(ConfigIndex, ReplacesWhatItKnewOfAVm) {
  ConfigIndex index;
  index.vmIs(*vmWith("web1", {macA}, 5900));
  index.vmIs(*vmWith("web1", {macB}, 5901));
  EXPECT_EQ(index.cardWith(macA, "new"), std::nullopt);
  EXPECT_EQ(index.cardWith(macB, "new"), card("web1", "nic00"));
  EXPECT_EQ(index.vmWithPort(5900, "new"), std::nullopt);
  EXPECT_EQ(index.vmWithPort(5901, "new"), "web1");
}

TEST(ConfigIndex, CountsPortsOfEnabledVmsOnlyAndNeverPortZero) {
  ConfigIndex index;
  const auto vm = vmWith("web1", {macA}, 5900);
  vm->enabledIs(false);
  index.vmIs(*vm);
  index.vmIs(*vmWith("web2", {}, 0));
  EXPECT_EQ(index.vmWithPort(5900, "new"), std::nullopt);
  EXPECT_EQ(index.vmWithPort(0, "new"), std::nullopt);
  EXPECT_EQ(index.cardWith(macA, "new"), card("web1", "nic00")) << "a card counts in any VM";
}

}  // namespace
}  // namespace model
