// What of a configuration waits for the next start.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/guests/RestartNeeded.h"

namespace host {
namespace {

Vm::VmConfig::Ptr vm() {
  auto config = rt::make<Vm::VmConfig>("web1");
  config->diskImageIs("/images/web.iso");
  config->memoryIs(256);
  const auto card = config->vnicConfigIs("nic00");
  card->modelIs("e1000");
  card->macAddrIs(*rt::EthAddr::fromText("52:54:00:00:00:0a"));
  card->intfNameIs("Vlan1");
  return config;
}

// The fields that are named when `change` was made since the start.
template <class Change>
std::string fieldsAfter(Change change) {
  const auto wanted = vm();
  change(*wanted);
  const std::string text = restartNeeded(*vm(), *wanted).str();
  return text.substr(0, text.find(':'));
}

TEST(RestartNeeded, IsNotNeededWhenNothingDiffers) { EXPECT_EQ(restartNeeded(*vm(), *vm()), ""); }

TEST(RestartNeeded, IsNotNeededForTheSwitch) {
  EXPECT_EQ(fieldsAfter([](auto& wanted) { wanted.enabledIs(true); }), "");
}

TEST(RestartNeeded, IsASentenceWithTheWayOut) {
  const auto wanted = vm();
  wanted->memoryIs(512);
  EXPECT_EQ(restartNeeded(*vm(), *wanted),
            "memory: changed since the guest was started; 'vmctl restart web1' applies it");
}

TEST(RestartNeeded, NamesEachFieldThatDiffers) {
  EXPECT_EQ(fieldsAfter([](auto& wanted) { wanted.diskImageIs("/b"); }), "diskImage");
  EXPECT_EQ(fieldsAfter([](auto& wanted) { wanted.vncPortIs(5900); }), "vncPort");
  EXPECT_EQ(fieldsAfter([](auto& wanted) {
              wanted.memoryIs(1);
              wanted.diskImageIs("/b");
              wanted.vnicConfigDelAll();
            }),
            "diskImage, memory, vnicConfig");
}

TEST(RestartNeeded, IsNeededForACardThatCameOrWentOrDiffers) {
  const auto card = [](Vm::VmConfig& wanted) { return wanted.vnicConfig("nic00"); };
  EXPECT_EQ(fieldsAfter([](auto& wanted) { wanted.vnicConfigIs("nic01"); }), "vnicConfig");
  EXPECT_EQ(fieldsAfter([](auto& wanted) { wanted.vnicConfigDel("nic00"); }), "vnicConfig");
  EXPECT_EQ(fieldsAfter([&](auto& wanted) { card(wanted)->modelIs("tulip"); }), "vnicConfig");
  EXPECT_EQ(fieldsAfter([&](auto& wanted) { card(wanted)->intfNameIs("Vlan2"); }), "vnicConfig");
  EXPECT_EQ(fieldsAfter([&](auto& wanted) {
              card(wanted)->macAddrIs(*rt::EthAddr::fromText("52:54:00:00:00:0b"));
            }),
            "vnicConfig");
}

TEST(RestartNeeded, IsNeededForACardUnderAnotherKey) {
  EXPECT_EQ(fieldsAfter([](auto& wanted) {
              wanted.vnicConfigDelAll();
              wanted.vnicConfigIs("nic01")->modelIs("e1000");
            }),
            "vnicConfig");
}

}  // namespace
}  // namespace host
