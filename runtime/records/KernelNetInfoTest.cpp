#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/fakes/ChangeRecorder.h"
#include "runtime/records/KernelNetInfo.h"

namespace KernelNetInfo {
namespace {

using rt::NamespaceName;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(InterfaceKeyTest, ItsTextIsReadBack) {
  const InterfaceKey key{NamespaceName("blue"), 4294967295};
  EXPECT_EQ(key.text(), "blue/4294967295");
  EXPECT_EQ(InterfaceKey::fromText("blue/4294967295"), key);
  EXPECT_EQ(InterfaceKey().text(), "default/0");
  EXPECT_EQ(InterfaceKey::fromText("default/0"), InterfaceKey());
}

TEST(InterfaceKeyTest, ANamespaceMayHaveASlash) {
  const InterfaceKey key{NamespaceName("blue/west"), 7};
  EXPECT_EQ(InterfaceKey::fromText(key.text()), key);
}

TEST(InterfaceKeyTest, MalformedTextIsRefused) {
  for (const char* text :
       {"", "7", "/7", "blue", "blue/", "blue/-1", "blue/4294967296", "blue/7 "}) {
    EXPECT_EQ(InterfaceKey::fromText(text), std::nullopt) << text;
  }
}

TEST(InterfaceKeyTest, KeysAreOrderedByNamespaceThenIfindex) {
  EXPECT_LT((InterfaceKey{NamespaceName("blue"), 9}), (InterfaceKey{NamespaceName("red"), 1}));
  EXPECT_LT((InterfaceKey{NamespaceName("red"), 9}), (InterfaceKey{NamespaceName("red"), 10}));
}

TEST(KernelNetInfoTest, DevicesAreKeyedByNamespaceAndIfindex) {
  const auto status = rt::make<Status>();
  status->interfaceIs({{}, 2}, "eth0");
  status->interfaceIs({NamespaceName("blue"), 2}, "eth1");
  EXPECT_EQ(status->interface({{}, 2}), "eth0");
  EXPECT_EQ(status->interface({NamespaceName("blue"), 2}), "eth1");
  EXPECT_EQ(status->interface({{}, 3}), "");
  EXPECT_TRUE(status->interfaceHas({{}, 2}));
  EXPECT_FALSE(status->interfaceHas({{}, 3}));
  EXPECT_EQ(status->interfaces().size(), 2U);
}

TEST(KernelNetInfoTest, ArrivalRenameAndRemovalAreToldOnceEach) {
  const auto status = rt::make<Status>();
  const auto recorder = rt::make<rt::fakes::ChangeRecorder>();
  recorder->watch(status);
  const std::string change = "KernelNetInfo::Status.interface[default/2]";
  status->interfaceIs({{}, 2}, "eth0");
  EXPECT_THAT(recorder->take(), ElementsAre(change));
  status->interfaceIs({{}, 2}, "eth0");
  EXPECT_THAT(recorder->take(), IsEmpty());
  status->interfaceIs({{}, 2}, "eth1");
  EXPECT_THAT(recorder->take(), ElementsAre(change));
  status->interfaceDel({{}, 2});
  EXPECT_THAT(recorder->take(), ElementsAre(change));
  status->interfaceDel({{}, 2});
  EXPECT_THAT(recorder->take(), IsEmpty());
}

TEST(KernelNetInfoTest, DevicesAreReadAndRemovedByName) {
  const auto status = rt::make<Status>();
  status->interfaceIs({{}, 10}, "eth1");
  status->interfaceIs({{}, 2}, "eth0");
  const rt::AttributeInfo& interfaces = *status->type().find("interface");
  EXPECT_EQ(interfaces.keyType, "KernelNetInfo::InterfaceKey");
  EXPECT_EQ(interfaces.valueType, "String");
  EXPECT_THAT(interfaces.keys(*status), ElementsAre("default/2", "default/10"));
  EXPECT_EQ(interfaces.memberText(*status, "default/2"), "eth0");
  EXPECT_THROW(interfaces.memberText(*status, "eth0"), rt::AttributeException);
  interfaces.memberDel(*status, "default/2");
  EXPECT_THAT(interfaces.keys(*status), ElementsAre("default/10"));
}

}  // namespace
}  // namespace KernelNetInfo
