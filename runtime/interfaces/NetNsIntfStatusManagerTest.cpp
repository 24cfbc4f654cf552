#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/fakes/NetNsIntfStatusFixture.h"
#include "runtime/interfaces/NetNsIntfStatusManager.h"

namespace Interface {
namespace {

using rt::NamespaceName;
using testing::ElementsAre;
using testing::IsEmpty;

using NetNsIntfStatusManagerTest = NetNsIntfStatusFixture;

// Arrival and removal.

TEST_F(NetNsIntfStatusManagerTest, AnArrivalIsListedBeforeItIsPresent) {
  const auto manager = start();
  isNamed(one, "eth0");
  EXPECT_THAT(observer->take(), IsEmpty());
  kernelHas(2, "eth0");
  EXPECT_THAT(observer->take(),
              ElementsAre("Vlan1: listed, absent", "Vlan1: listed, present as eth0 2"));
  EXPECT_EQ(present(one), "eth0 2");
}

TEST_F(NetNsIntfStatusManagerTest, ARemovalIsAbsentBeforeItIsUnlisted) {
  const auto manager = start();
  isNamed(one, "eth0");
  kernelHas(2, "eth0");
  observer->take();
  kernelLoses(2);
  EXPECT_THAT(observer->take(), ElementsAre("Vlan1: listed, absent", "Vlan1: not listed, absent"));
}

TEST_F(NetNsIntfStatusManagerTest, ADeviceMayBeThereBeforeItIsNamed) {
  const auto manager = start();
  kernelHas(2, "eth0");
  EXPECT_THAT(observer->take(), IsEmpty());
  isNamed(one, "eth0");
  EXPECT_EQ(present(one), "eth0 2");
}

TEST_F(NetNsIntfStatusManagerTest, AnInterfaceThatIsNoLongerNamedIsRemoved) {
  const auto manager = start();
  isNamed(one, "eth0");
  kernelHas(2, "eth0");
  observer->take();
  locals->intfStatusLocalDel(one);
  EXPECT_THAT(observer->take(), ElementsAre("Vlan1: listed, absent", "Vlan1: not listed, absent"));
}

TEST_F(NetNsIntfStatusManagerTest, ADeviceThatNoInterfaceIsNamedByIsIgnored) {
  const auto manager = start();
  isNamed(one, "eth0");
  kernelHas(3, "eth1");
  kernelLoses(3);
  EXPECT_THAT(observer->take(), IsEmpty());
}

TEST_F(NetNsIntfStatusManagerTest, DevicesThatWereThereBeforeTheManagerArrive) {
  isNamed(one, "eth0");
  isNamed(two, "eth1");
  kernelHas(2, "eth0");
  EXPECT_THAT(observer->take(), IsEmpty());
  const auto manager = start();
  EXPECT_THAT(observer->take(),
              ElementsAre("Vlan1: listed, absent", "Vlan1: listed, present as eth0 2"));
}

TEST_F(NetNsIntfStatusManagerTest, TwoInterfacesMayBeOneDevice) {
  const auto manager = start();
  isNamed(one, "eth0");
  isNamed(two, "eth0");
  kernelHas(2, "eth0");
  EXPECT_EQ(present(one), "eth0 2");
  EXPECT_EQ(present(two), "eth0 2");
  locals->intfStatusLocalDel(one);
  EXPECT_EQ(present(one), "");
  EXPECT_EQ(present(two), "eth0 2");
  kernelLoses(2);
  EXPECT_EQ(present(two), "");
}

// Replacement: a removal, then an arrival.

TEST_F(NetNsIntfStatusManagerTest, AnotherDeviceUnderOneIdReplacesTheOld) {
  const auto manager = start();
  isNamed(one, "eth0");
  kernelHas(2, "eth0");
  kernelHas(3, "eth1");
  observer->take();
  isNamed(one, "eth1");
  EXPECT_THAT(observer->take(), replacedBy("eth1 3"));
  EXPECT_EQ(present(one), "eth1 3");
}

TEST_F(NetNsIntfStatusManagerTest, ADeviceThatIsNotThereReplacesTheOldByNothing) {
  const auto manager = start();
  isNamed(one, "eth0");
  kernelHas(2, "eth0");
  observer->take();
  isNamed(one, "eth1");
  EXPECT_THAT(observer->take(), gone());
}

TEST_F(NetNsIntfStatusManagerTest, ANewIfindexAfterTheOldOnesEndIsANewDevice) {
  const auto manager = start();
  isNamed(one, "eth0");
  kernelHas(2, "eth0");
  observer->take();
  kernelLoses(2);
  kernelHas(7, "eth0");
  EXPECT_THAT(observer->take(), replacedBy("eth0 7"));
}

TEST_F(NetNsIntfStatusManagerTest, ANewIfindexBeforeTheOldOnesEndIsANewDeviceToldOnce) {
  const auto manager = start();
  isNamed(one, "eth0");
  kernelHas(2, "eth0");
  observer->take();
  kernelHas(7, "eth0");
  EXPECT_THAT(observer->take(), replacedBy("eth0 7"));
  kernelLoses(2);
  EXPECT_THAT(observer->take(), IsEmpty());
}

TEST_F(NetNsIntfStatusManagerTest, ADeviceRenamedAwayIsGoneAndRenamedBackHasCome) {
  const auto manager = start();
  isNamed(one, "eth0");
  kernelHas(2, "eth0");
  observer->take();
  kernelHas(2, "eth9");
  EXPECT_THAT(observer->take(), gone());
  kernelHas(2, "eth0");
  EXPECT_EQ(present(one), "eth0 2");
}

TEST_F(NetNsIntfStatusManagerTest, ADeviceRenamedFromOneInterfacesNameToAnothersMoves) {
  const auto manager = start();
  isNamed(one, "eth0");
  isNamed(two, "eth1");
  kernelHas(2, "eth0");
  observer->take();
  kernelHas(2, "eth1");
  EXPECT_EQ(present(one), "");
  EXPECT_EQ(present(two), "eth1 2");
}

TEST_F(NetNsIntfStatusManagerTest, TwoDevicesThatSwapNamesSwapInterfaces) {
  for (const uint32_t first : {2U, 3U}) {
    const auto manager = start();
    isNamed(one, "eth0");
    isNamed(two, "eth1");
    kernelHas(2, "eth0");
    kernelHas(3, "eth1");
    // Told one after the other, in either order, so for a moment two have one name.
    kernelHas(first, first == 2 ? "eth1" : "eth0");
    kernelHas(5 - first, first == 2 ? "eth0" : "eth1");
    EXPECT_EQ(present(one), "eth0 3");
    EXPECT_EQ(present(two), "eth1 2");
  }
}

// Namespaces.

TEST_F(NetNsIntfStatusManagerTest, ADeviceInAnotherNamespaceIsIgnored) {
  const auto manager = start();
  isNamed(one, "eth0");
  kernel->interfaceIs({NamespaceName("blue"), 2}, "eth0");
  EXPECT_THAT(observer->take(), IsEmpty());
}

TEST_F(NetNsIntfStatusManagerTest, ADeviceInAnotherNamespaceThatWasThereBeforeIsIgnored) {
  isNamed(one, "eth0");
  kernel->interfaceIs({NamespaceName("blue"), 2}, "eth0");
  const auto manager = start();
  EXPECT_THAT(observer->take(), IsEmpty());
}

TEST_F(NetNsIntfStatusManagerTest, WithoutTheFilterAnInterfaceOfAnotherNamespaceIsFollowed) {
  const auto manager = start();
  isNamed(one, "eth0", NamespaceName("blue"));
  kernelHas(2, "eth0");
  EXPECT_EQ(present(one), "eth0 2");
}

TEST_F(NetNsIntfStatusManagerTest, WithTheFilterAnInterfaceOfAnotherNamespaceIsIgnored) {
  root = rt::make<NetNsIntfStatusManagerRoot>(all, locals, /*filterByNetNs=*/true);
  const auto manager = start();
  isNamed(one, "eth0", NamespaceName("blue"));
  isNamed(two, "eth0");
  kernelHas(2, "eth0");
  EXPECT_EQ(present(one), "");
  EXPECT_EQ(present(two), "eth0 2");
}

TEST_F(NetNsIntfStatusManagerTest, WithTheFilterAnInterfaceThatMovesToAnotherNamespaceIsRemoved) {
  root = rt::make<NetNsIntfStatusManagerRoot>(all, locals, /*filterByNetNs=*/true);
  const auto manager = start();
  isNamed(one, "eth0");
  kernelHas(2, "eth0");
  isNamed(one, "eth0", NamespaceName("blue"));
  EXPECT_EQ(present(one), "");
}

TEST_F(NetNsIntfStatusManagerTest, AManagerOfAnotherNamespaceFollowsItsDevices) {
  const auto manager = root->intfStatusManagerIs(devices, kernel, NamespaceName("blue"));
  isNamed(one, "eth0");
  kernelHas(2, "eth0");
  EXPECT_EQ(present(one), "");
  kernel->interfaceIs({NamespaceName("blue"), 9}, "eth0");
  EXPECT_EQ(present(one), "eth0 9");
}

}  // namespace
}  // namespace Interface
