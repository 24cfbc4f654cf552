// What of a configuration waits for the next start.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "model/RestartNeeded.h"

namespace model {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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

// The fields that wait when `change` was made since the start.
template <class Change>
std::vector<std::string_view> fieldsAfter(Change change) {
  const auto wanted = vm();
  change(*wanted);
  return fieldsForNextStart(*vm(), *wanted);
}

// Sets a scalar to what it is not.
void alter(rt::Entity& record, const rt::AttributeInfo& attribute) {
  for (const char* text : {"true", "7", "other", "52:54:00:00:00:0b"}) {
    try {
      attribute.textIs(record, text);
      return;
    } catch (const rt::AttributeException&) {  // it is of another type
    }
  }
  FAIL() << "there is no value for " << attribute.name;
}

TEST(RestartNeeded, IsNotNeededWhenNothingDiffers) {
  EXPECT_THAT(fieldsForNextStart(*vm(), *vm()), IsEmpty());
  const auto same = vm();
  EXPECT_THAT(fieldsForNextStart(*same, *same), IsEmpty());
}

TEST(RestartNeeded, IsNeededForEachFieldOfAVmButItsSwitch) {
  size_t count = 0;
  for (const rt::AttributeInfo& attribute : vm()->type().attributes) {
    if (!attribute.textIs) continue;
    ++count;
    const auto fields = fieldsAfter([&](auto& wanted) { alter(wanted, attribute); });
    if (attribute.name == "enabled")
      EXPECT_THAT(fields, IsEmpty());
    else
      EXPECT_THAT(fields, ElementsAre(attribute.name));
  }
  EXPECT_GE(count, 4U);
}

TEST(RestartNeeded, IsNeededForEachFieldOfACardButItsInterface) {
  size_t count = 0;
  for (const rt::AttributeInfo& attribute : vm()->vnicConfig("nic00")->type().attributes) {
    if (!attribute.textIs) continue;
    ++count;
    const auto fields =
        fieldsAfter([&](auto& wanted) { alter(*wanted.vnicConfig("nic00"), attribute); });
    if (attribute.name == "intfName")
      EXPECT_THAT(fields, IsEmpty());
    else
      EXPECT_THAT(fields, ElementsAre("vnicConfig")) << attribute.name;
  }
  EXPECT_GE(count, 3U);
}

TEST(RestartNeeded, IsNeededForACardThatCameOrWentOrHasAnotherKey) {
  EXPECT_THAT(fieldsAfter([](auto& wanted) { wanted.vnicConfigIs("nic01"); }),
              ElementsAre("vnicConfig"));
  EXPECT_THAT(fieldsAfter([](auto& wanted) { wanted.vnicConfigDel("nic00"); }),
              ElementsAre("vnicConfig"));
  EXPECT_THAT(fieldsAfter([](auto& wanted) {
                wanted.vnicConfigDel("nic00");
                wanted.vnicConfigIs("nic01")->modelIs("e1000");
              }),
              ElementsAre("vnicConfig"));
}

TEST(RestartNeeded, NamesAllFieldsInTheOrderOfTheRecord) {
  EXPECT_THAT(fieldsAfter([](auto& wanted) {
                wanted.vnicConfigDelAll();
                wanted.memoryIs(1);
                wanted.diskImageIs("/b");
              }),
              ElementsAre("diskImage", "memory", "vnicConfig"));
}

TEST(RestartNeeded, IsOfAChangeOfAFieldOrOfTheFormatWhileTheVmIsAndStaysEnabled) {
  const auto before = vm();
  const auto after = vm();
  after->memoryIs(512);
  EXPECT_FALSE(needsRestart({*before, "raw"}, {*after, "raw"}));
  before->enabledIs(true);
  EXPECT_FALSE(needsRestart({*before, "raw"}, {*after, "raw"}));
  after->enabledIs(true);
  EXPECT_TRUE(needsRestart({*before, "raw"}, {*after, "raw"}));
  EXPECT_FALSE(needsRestart({*before, "raw"}, {*before, "raw"}));
  EXPECT_TRUE(needsRestart({*before, "raw"}, {*before, "qcow2"}));
}

}  // namespace
}  // namespace model
