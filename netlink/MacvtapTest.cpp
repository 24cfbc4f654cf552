// Creating and deleting macvtap devices, and their names.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <netlink/errno.h>
#include <unistd.h>

#include <cerrno>

#include "Vm/VmAgent/fakes/FakeKernel.h"
#include "netlink/Macvtap.h"
#include "netlink/MacvtapSetup.h"
#include "netlink/fakes/Pauses.h"
#include "runtime/fakes/TraceRecorder.h"

namespace netlink {

namespace {

using fakes::Pauses;
using testing::ElementsAre;
using testing::IsEmpty;
using Vm::fakes::FakeKernel;
using Vm::fakes::KernelCall;

constexpr char mac[] = "\x52\x54\x00\x12\x34\x56";
constexpr char otherMac[] = "\x52\x54\x00\x12\x34\x57";

class Macvtap : public testing::Test {
 protected:
  Vm::fakes::EffectLog effects;
  FakeKernel kernel{effects};
  rt::fakes::TraceRecorder traces;
  int ifindex = -1;

  Macvtap() { kernel.deviceIs("Vlan100", 7); }
  int add(const char* name = "macvtap0") { return deviceAdd(mac, name, "Vlan100", 4, &ifindex); }
};

TEST_F(Macvtap, IsAddedOnItsLowerDeviceWithItsAddressAndMode) {
  EXPECT_EQ(add(), 0);
  const auto* const device = kernel.device("macvtap0");
  ASSERT_TRUE(device);
  EXPECT_EQ(device->kind, "macvtap");
  EXPECT_EQ(device->mode, 4U);
  EXPECT_EQ(device->mac, "52:54:00:12:34:56");
  EXPECT_EQ(device->lower, 7U);
  EXPECT_FALSE(device->up());
}

TEST_F(Macvtap, TakesTheModeThatIsAskedFor) {
  deviceAdd(mac, "macvtap0", "Vlan100", MACVLAN_MODE_VEPA, nullptr);
  EXPECT_EQ(kernel.device("macvtap0")->mode, static_cast<uint32_t>(MACVLAN_MODE_VEPA));
}

TEST_F(Macvtap, IsAskedForWithTheCreateFlagAlone) {
  add();
  EXPECT_EQ(kernel.device("macvtap0")->requestedFlags, NLM_F_CREATE);
}

TEST_F(Macvtap, TellsItsIndexIfThatIsWanted) {
  add();
  EXPECT_EQ(static_cast<uint32_t>(ifindex), kernel.device("macvtap0")->index);
  EXPECT_EQ(deviceAdd(otherMac, "macvtap1", "Vlan100", 4, nullptr), 0);
}

TEST_F(Macvtap, HasIndexZeroWhenItCannotBeMade) {
  kernel.fail(KernelCall::sendRequest, NLE_PERM);
  EXPECT_LT(add(), 0);
  EXPECT_EQ(ifindex, 0);
}

TEST_F(Macvtap, IsTracedOnEntryWithAllItIsToBe) {
  add();
  EXPECT_THAT(traces.take(), ElementsAre("7 deviceAdd macaddress 52:54:00:12:34:56 ifname macvtap0 "
                                         "srcdev Vlan100 macvlan_mode 4"));
}

TEST_F(Macvtap, CannotBeMadeOnAMissingDevice) {
  EXPECT_LT(deviceAdd(mac, "macvtap0", "Vlan200", 4, nullptr), 0);
  EXPECT_THAT(traces.take(1), ElementsAre("deviceAddFAIL: cannot get Vlan200's ifindex "));
  EXPECT_EQ(kernel.calls(KernelCall::socketAlloc), 0);
}

TEST_F(Macvtap, HasAnAddressOfNoFamily) {
  add();
  EXPECT_EQ(kernel.addressFamily, 0);
}

struct Fault {
  KernelCall call;
  const char* trace;
  int successes = 0;  // before it
};

class MacvtapFault : public Macvtap, public testing::WithParamInterface<Fault> {};

TEST_P(MacvtapFault, IsTracedAndMakesNoDevice) {
  kernel.fail(GetParam().call, NLE_NOMEM, GetParam().successes);
  EXPECT_LT(add(), 0);
  EXPECT_THAT(traces.take(1), ElementsAre(GetParam().trace));
  EXPECT_THAT(kernel.macvtaps(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Add, MacvtapFault,
    testing::Values(Fault{KernelCall::socketAlloc, "deviceAdd FAIL: cannot alloc nl_sock"},
                    Fault{KernelCall::socketConnect, "deviceAdd Unable to connect socket"},
                    Fault{KernelCall::macvlanAlloc, "deviceAdd FAIL: cannot send to nl socket "},
                    Fault{KernelCall::buildAddress, "deviceAdd FAIL: cannot send to nl socket "},
                    Fault{KernelCall::startNest, "deviceAdd FAIL: cannot send to nl socket "},
                    Fault{KernelCall::startNest, "deviceAdd FAIL: cannot send to nl socket ", 1},
                    Fault{KernelCall::putAttribute, "deviceAdd FAIL: cannot send to nl socket "},
                    Fault{KernelCall::putAttribute, "deviceAdd FAIL: cannot send to nl socket ", 1},
                    Fault{KernelCall::buildRequest, "deviceAdd FAIL: cannot send to nl socket "},
                    Fault{KernelCall::sendRequest, "deviceAdd FAIL: cannot send to nl socket "}));

class MacvtapRemovalFault : public Macvtap, public testing::WithParamInterface<Fault> {};

TEST_P(MacvtapRemovalFault, IsTracedAndKeepsTheDevice) {
  add();
  traces.take();
  kernel.fail(GetParam().call, NLE_NOMEM);
  deviceRemove("macvtap0");
  EXPECT_THAT(traces.take(1), ElementsAre(GetParam().trace));
  EXPECT_THAT(kernel.macvtaps(), ElementsAre("macvtap0"));
}

INSTANTIATE_TEST_SUITE_P(
    Remove, MacvtapRemovalFault,
    testing::Values(Fault{KernelCall::socketAlloc, "deviceRemove FAIL: cannot alloc nl_sock"},
                    Fault{KernelCall::socketConnect, "deviceRemove Unable to connect socket"},
                    Fault{KernelCall::linkAlloc, "deviceRemove FAIL: cannot alloc rtnl_link"},
                    Fault{KernelCall::linkDelete,
                          "deviceRemove FAIL: cannot delete device macvtap0"}));

TEST_F(Macvtap, IsRemovedByItsName) {
  add();
  traces.take();
  deviceRemove("macvtap0");
  EXPECT_THAT(kernel.macvtaps(), IsEmpty());
  EXPECT_THAT(traces.take(), ElementsAre("7 deviceRemove ifname macvtap0"));
}

TEST_F(Macvtap, ThatIsNotThereCannotBeRemoved) {
  deviceRemove("macvtap9");
  EXPECT_THAT(traces.take(1), ElementsAre("deviceRemove FAIL: cannot delete device macvtap9"));
}

class MacvtapSetupTest : public Macvtap {
 protected:
  MacvtapSetup setup() { return setupMacvtap("Vlan100", mac, Pauses::count); }

  const Pauses pauses;
};

TEST_F(MacvtapSetupTest, MakesTheDeviceSetsItUpAndOpensItsTap) {
  const MacvtapSetup made = setup();
  EXPECT_STREQ(made.name, "macvtap0");
  EXPECT_EQ(made.fd, kernel.tapOf("macvtap0"));
  EXPECT_FALSE(made.leftover);
  EXPECT_EQ(kernel.device("macvtap0")->mode, 4U);
  EXPECT_THAT(effects.take(), ElementsAre("link add macvtap0 on Vlan100 52:54:00:12:34:56",
                                          "up macvtap0", "open /dev/tap501"));
  close(made.fd);
}

TEST_F(MacvtapSetupTest, TakesTheFirstFreeName) {
  for (const char* taken : {"macvtap0", "macvtap1", "macvtap2", "macvtap4"})
    kernel.deviceIs(taken, kernel.device("Vlan100")->index + static_cast<uint32_t>(taken[7]));
  const MacvtapSetup made = setup();
  EXPECT_STREQ(made.name, "macvtap3");
  close(made.fd);
}

TEST_F(MacvtapSetupTest, TakesTheLastNameIfOnlyThatIsFree) {
  for (uint32_t i = 0; i < 8191; ++i) kernel.deviceIs("macvtap" + std::to_string(i), 10'000 + i);
  const MacvtapSetup made = setup();
  EXPECT_STREQ(made.name, "macvtap8191");
  EXPECT_EQ(kernel.device("macvtap8191")->mac, "52:54:00:12:34:56");
  close(made.fd);
}

TEST_F(MacvtapSetupTest, GoesOnWithMacvtap8191WhenAllNamesAreTaken) {
  for (uint32_t i = 0; i < 8192; ++i) kernel.deviceIs("macvtap" + std::to_string(i), 10'000 + i);
  kernel.nodeIs(10'000 + 8191);
  const MacvtapSetup made = setup();
  EXPECT_STREQ(made.name, "macvtap8191");
  EXPECT_GE(made.fd, 0);
  EXPECT_EQ(kernel.calls(KernelCall::sendRequest), 0);
  EXPECT_THAT(effects.take(), ElementsAre("open /dev/tap18191"));
  close(made.fd);
}

TEST_F(MacvtapSetupTest, FailsOnAnyOtherErrorThanAMissingDevice) {
  kernel.deviceIs("macvtap0", 9);
  kernel.fail(KernelCall::nameToIndex, EACCES, 1);
  const MacvtapSetup made = setup();
  EXPECT_EQ(made.fd, -1);
  EXPECT_FALSE(made.leftover);
  EXPECT_THAT(traces.take(), ElementsAre("1 setupMacvtap FAIL: Permission denied"));
  EXPECT_EQ(kernel.calls(KernelCall::sendRequest), 0);
}

TEST_F(MacvtapSetupTest, LeavesNothingWhenTheDeviceCannotBeMade) {
  kernel.fail(KernelCall::sendRequest, NLE_PERM);
  const MacvtapSetup made = setup();
  EXPECT_EQ(made.fd, -1);
  EXPECT_FALSE(made.leftover);
  EXPECT_THAT(traces.take(1), ElementsAre("deviceAdd FAIL: cannot send to nl socket ",
                                          "setupMacvtap FAIL: deviceAdd failed for macvtap0"));
  EXPECT_EQ(kernel.calls(KernelCall::getFlags), 0);
}

TEST_F(MacvtapSetupTest, LeavesTheDeviceToItsCallerWhenItCannotBeSetUp) {
  kernel.fail(KernelCall::setFlags, EBUSY);
  const MacvtapSetup made = setup();
  EXPECT_EQ(made.fd, -1);
  EXPECT_TRUE(made.leftover);
  EXPECT_STREQ(made.name, "macvtap0");
  EXPECT_THAT(traces.take(1),
              ElementsAre("ifUpFAIL: cannot ioctl to set if flags",
                          "setupMacvtap FAIL: cannot 'up' interface macvtap0 -- another macvtap "
                          "device may be 'up' and have the same MAC address "));
  EXPECT_EQ(kernel.calls(KernelCall::openTap), 0);
}

TEST_F(MacvtapSetupTest, CannotSetASecondDeviceUpWithTheSameAddress) {
  const MacvtapSetup first = setup();
  const MacvtapSetup second = setup();
  EXPECT_EQ(second.fd, -1);
  EXPECT_TRUE(second.leftover);
  EXPECT_STREQ(second.name, "macvtap1");
  close(first.fd);
}

TEST_F(MacvtapSetupTest, SetsTheDeviceDownAgainWhenItsTapCannotBeOpened) {
  kernel.nodeAfter = FakeKernel::never;
  const MacvtapSetup made = setup();
  EXPECT_EQ(made.fd, -1);
  EXPECT_TRUE(made.leftover);
  EXPECT_EQ(Pauses::counted, 100);
  EXPECT_THAT(traces.take(1), ElementsAre("openTap FAIL: cannot open macvtap device /dev/tap501 "
                                          "check if udevd is running ",
                                          "setupMacvtap FAIL: cannot open tap device "));
  EXPECT_THAT(effects.take(), ElementsAre("link add macvtap0 on Vlan100 52:54:00:12:34:56",
                                          "up macvtap0", "down macvtap0"));
}

}  // namespace

}  // namespace netlink
