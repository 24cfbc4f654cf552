#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/fakes/NetNsIntfStatusFixture.h"

namespace Interface {
namespace {

using rt::IntfId;
using testing::IsEmpty;

using NetNsIntfStatusManagerLifeTest = NetNsIntfStatusFixture;

// One manager after another.

TEST_F(NetNsIntfStatusManagerLifeTest, ItsEndLeavesTheDirectoriesAndFollowsNothingMore) {
  start();
  isNamed(one, "eth0");
  kernelHas(2, "eth0");
  observer->take();
  EXPECT_NE(root->intfStatusManagerDel({}), nullptr);
  kernelLoses(2);
  EXPECT_THAT(observer->take(), IsEmpty());
  EXPECT_EQ(present(one), "eth0 2");
}

TEST_F(NetNsIntfStatusManagerLifeTest, TheNextOneTellsNothingWhereNothingChanged) {
  start();
  isNamed(one, "eth0");
  kernelHas(2, "eth0");
  root->intfStatusManagerDel({});
  observer->take();
  const auto next = start();
  EXPECT_THAT(observer->take(), IsEmpty());
}

TEST_F(NetNsIntfStatusManagerLifeTest, TheNextOneRemovesWhatHasGoneMeanwhile) {
  start();
  isNamed(one, "eth0");
  isNamed(two, "eth1");
  kernelHas(2, "eth0");
  kernelHas(3, "eth1");
  root->intfStatusManagerDel({});
  kernelLoses(2);
  locals->intfStatusLocalDel(two);
  const auto next = start();
  EXPECT_EQ(present(one), "");
  EXPECT_EQ(present(two), "");
}

TEST_F(NetNsIntfStatusManagerLifeTest, TheNextOneReplacesWhatWasReplacedMeanwhile) {
  start();
  isNamed(one, "eth0");
  kernelHas(2, "eth0");
  root->intfStatusManagerDel({});
  kernelLoses(2);
  kernelHas(7, "eth0");
  observer->take();
  const auto next = start();
  EXPECT_THAT(observer->take(), replacedBy("eth0 7"));
}

TEST_F(NetNsIntfStatusManagerLifeTest, WhatIsPresentButNotListedIsListed) {
  isNamed(one, "eth0");
  kernelHas(2, "eth0");
  devices->intfStatusAndDeviceNameIs(one, {"eth0", 2});
  const auto manager = start();
  EXPECT_EQ(present(one), "eth0 2");
}

// Handlers that change the names while an update is under way.

TEST_F(NetNsIntfStatusManagerLifeTest, AnotherDeviceNamedDuringARemovalArrivesAfterIt) {
  const auto manager = start();
  isNamed(one, "eth0");
  kernelHas(2, "eth0");
  kernelHas(3, "eth1");
  observer->take();
  observer->then = [&](const IntfId&) { isNamed(one, "eth1"); };
  kernelLoses(2);
  EXPECT_THAT(observer->take(), replacedBy("eth1 3"));
  EXPECT_EQ(present(one), "eth1 3");
}

TEST_F(NetNsIntfStatusManagerLifeTest, ADeviceLostDuringItsArrivalEndsNeitherListedNorPresent) {
  const auto manager = start();
  isNamed(one, "eth0");
  observer->then = [&](const IntfId&) { kernelLoses(2); };
  kernelHas(2, "eth0");
  EXPECT_EQ(present(one), "");
}

TEST_F(NetNsIntfStatusManagerLifeTest, AnotherDeviceNamedDuringAnArrivalIsTheOneThatStays) {
  const auto manager = start();
  isNamed(one, "eth0");
  kernelHas(3, "eth1");
  observer->then = [&](const IntfId&) { isNamed(one, "eth1"); };
  kernelHas(2, "eth0");
  EXPECT_EQ(present(one), "eth1 3");
}

TEST_F(NetNsIntfStatusManagerLifeTest, AnInterfaceUnnamedWhileAnotherOfItsDeviceArrivesDoesNot) {
  const auto manager = start();
  isNamed(one, "eth0");
  isNamed(two, "eth0");
  observer->then = [&](const IntfId&) { locals->intfStatusLocalDel(two); };
  kernelHas(2, "eth0");
  EXPECT_EQ(present(one), "eth0 2");
  EXPECT_EQ(present(two), "");
}

TEST_F(NetNsIntfStatusManagerLifeTest, FollowsOnAfterAHandlerThrew) {
  const auto manager = start();
  isNamed(one, "eth0");
  isNamed(two, "eth1");
  observer->then = [](const IntfId&) { throw rt::Exception("a handler fails"); };
  EXPECT_THROW(kernelHas(2, "eth0"), rt::Exception);
  observer->then = nullptr;
  kernelHas(3, "eth1");
  EXPECT_EQ(present(two), "eth1 3");
}

TEST_F(NetNsIntfStatusManagerLifeTest, ARemovalIsCompleteThoughAHandlerThrew) {
  const auto manager = start();
  isNamed(one, "eth0");
  kernelHas(2, "eth0");
  observer->then = [](const IntfId&) { throw rt::Exception("a handler fails"); };
  EXPECT_THROW(kernelLoses(2), rt::Exception);
  EXPECT_EQ(present(one), "");
}

TEST_F(NetNsIntfStatusManagerLifeTest, AnArrivalIsCompleteThoughAHandlerThrew) {
  const auto manager = start();
  isNamed(one, "eth0");
  observer->then = [](const IntfId&) { throw rt::Exception("a handler fails"); };
  EXPECT_THROW(kernelHas(2, "eth0"), rt::Exception);
  EXPECT_EQ(present(one), "eth0 2");
}

TEST_F(NetNsIntfStatusManagerLifeTest, ARenameArrivesThoughTheRemovalsHandlerThrew) {
  const auto manager = start();
  isNamed(one, "eth0");
  isNamed(two, "eth1");
  kernelHas(2, "eth0");
  observer->then = [](const IntfId&) { throw rt::Exception("a handler fails"); };
  EXPECT_THROW(kernelHas(2, "eth1"), rt::Exception);
  EXPECT_EQ(present(one), "");
  EXPECT_EQ(present(two), "eth1 2");
}

TEST_F(NetNsIntfStatusManagerLifeTest, MayBeRemovedByAHandlerOfItsUpdate) {
  start();
  isNamed(one, "eth0");
  observer->then = [&](const IntfId&) { root->intfStatusManagerDel({}); };
  kernelHas(2, "eth0");
  EXPECT_EQ(present(one), "eth0 2");
  EXPECT_TRUE(root->intfStatusManagers().empty());
}

}  // namespace
}  // namespace Interface
