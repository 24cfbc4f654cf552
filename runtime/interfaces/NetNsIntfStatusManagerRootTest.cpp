#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/base/Exception.h"
#include "runtime/interfaces/NetNsIntfStatusManager.h"

namespace Interface {
namespace {

using rt::NamespaceName;

class NetNsIntfStatusManagerRootTest : public testing::Test {
 protected:
  const AllIntfStatusDir::Ptr all = rt::make<AllIntfStatusDir>();
  const AllIntfStatusLocalDir::Ptr locals = rt::make<AllIntfStatusLocalDir>();
  const DeviceIntfStatusDir::Ptr devices = rt::make<DeviceIntfStatusDir>();
  const KernelNetInfo::Status::Ptr kernel = rt::make<KernelNetInfo::Status>();
  const NetNsIntfStatusManagerRoot::Ptr root =
      rt::make<NetNsIntfStatusManagerRoot>(all, locals, true);

  // The attribute that a request is refused for; empty when it is not.
  std::string refused(const DeviceIntfStatusDir::Ptr& itsDevices,
                      const KernelNetInfo::Status::PtrConst& itsKernel) {
    try {
      root->intfStatusManagerIs(itsDevices, itsKernel, {});
      return "";
    } catch (const rt::ReinstantiationException& e) {
      return e.attribute().str();
    }
  }
};

TEST_F(NetNsIntfStatusManagerRootTest, HasWhatItWasMadeFrom) {
  EXPECT_EQ(root->allIntfStatusDir(), all);
  EXPECT_EQ(root->allIntfStatusLocalDir(), locals);
  EXPECT_TRUE(root->filterByNetNs());
  EXPECT_TRUE(root->intfStatusManagers().empty());
}

TEST_F(NetNsIntfStatusManagerRootTest, ANewManagerHasWhatItWasMadeFrom) {
  const auto manager = root->intfStatusManagerIs(devices, kernel, NamespaceName("blue"));
  EXPECT_EQ(manager->deviceIntfStatusDir(), devices);
  EXPECT_EQ(manager->kniStatus(), kernel);
  EXPECT_EQ(manager->netNs(), NamespaceName("blue"));
  EXPECT_TRUE(manager->initialized());
  EXPECT_EQ(root->intfStatusManager(NamespaceName("blue")), manager);
  EXPECT_EQ(root->intfStatusManager({}), nullptr);
}

TEST_F(NetNsIntfStatusManagerRootTest, TheSameArgumentsAgainReturnTheExistingManager) {
  const auto manager = root->intfStatusManagerIs(devices, kernel, {});
  EXPECT_EQ(root->intfStatusManagerIs(devices, kernel, {}), manager);
}

TEST_F(NetNsIntfStatusManagerRootTest, OtherArgumentsAreRefusedByTheAttributesName) {
  const auto manager = root->intfStatusManagerIs(devices, kernel, {});
  EXPECT_EQ(refused(rt::make<DeviceIntfStatusDir>(), kernel), "deviceIntfStatusDir");
  EXPECT_EQ(refused(devices, rt::make<KernelNetInfo::Status>()), "kniStatus");
  EXPECT_EQ(root->intfStatusManager({}), manager);
}

TEST_F(NetNsIntfStatusManagerRootTest, EachNamespaceHasAManagerOfItsOwn) {
  const auto manager = root->intfStatusManagerIs(devices, kernel, {});
  const auto blue =
      root->intfStatusManagerIs(rt::make<DeviceIntfStatusDir>(), kernel, NamespaceName("blue"));
  EXPECT_NE(manager, blue);
  EXPECT_EQ(root->intfStatusManagers().size(), 2U);
}

TEST_F(NetNsIntfStatusManagerRootTest, RemovalReleasesTheManager) {
  const auto manager = root->intfStatusManagerIs(devices, kernel, {});
  EXPECT_EQ(root->intfStatusManagerDel({}), manager);
  EXPECT_EQ(manager->references(), 1U);
  EXPECT_EQ(root->intfStatusManagerDel({}), nullptr);
}

TEST_F(NetNsIntfStatusManagerRootTest, IsReadByName) {
  root->intfStatusManagerIs(devices, kernel, {});
  EXPECT_EQ(rt::attributeText(*root, "filterByNetNs"), "true");
  EXPECT_EQ(root->type().find("allIntfStatusDir")->entity(*root), all);
  EXPECT_EQ(root->type().find("allIntfStatusLocalDir")->entity(*root), locals);
  const rt::AttributeInfo& managers = *root->type().find("intfStatusManager");
  EXPECT_THAT(managers.keys(*root), testing::ElementsAre("default"));
  const auto manager = managers.member(*root, "default");
  EXPECT_EQ(rt::attributeText(*manager, "netNs"), "default");
  EXPECT_EQ(rt::attributeText(*manager, "initialized"), "true");
  EXPECT_EQ(manager->type().find("deviceIntfStatusDir")->entity(*manager), devices);
  EXPECT_EQ(manager->type().find("kniStatus")->entity(*manager), kernel);
}

TEST_F(NetNsIntfStatusManagerRootTest, RefusesNullForADirectoryOrTheKernelsDevices) {
  const auto refusalOf = [](const auto& work) -> std::string {
    try {
      work();
    } catch (const rt::NullArgumentException& e) {
      return e.what();
    }
    return "nothing";
  };
  const std::string what = "Interface::NetNsIntfStatusManagerRoot::";
  const std::string why = ": a null pointer is not allowed";
  EXPECT_EQ(refusalOf([&] { root->intfStatusManagerIs(nullptr, kernel, {}); }),
            what + "intfStatusManager" + why);
  EXPECT_EQ(refusalOf([&] { root->intfStatusManagerIs(devices, nullptr, {}); }),
            what + "intfStatusManager" + why);
  EXPECT_EQ(refusalOf([&] { rt::make<NetNsIntfStatusManagerRoot>(nullptr, locals, false); }),
            what + "allIntfStatusDir" + why);
  EXPECT_EQ(refusalOf([&] { rt::make<NetNsIntfStatusManagerRoot>(all, nullptr, false); }),
            what + "allIntfStatusLocalDir" + why);
  EXPECT_TRUE(root->intfStatusManagers().empty());
}

}  // namespace
}  // namespace Interface
