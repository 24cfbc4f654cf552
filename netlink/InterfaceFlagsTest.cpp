// Setting devices up and down.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>

#include <cerrno>
#include <filesystem>

#include "Vm/VmAgent/fakes/FakeKernel.h"
#include "netlink/InterfaceFlags.h"
#include "runtime/fakes/TraceRecorder.h"

namespace netlink {

namespace {

using testing::ElementsAre;
using Vm::fakes::KernelCall;

class InterfaceFlags : public testing::Test {
 protected:
  Vm::fakes::EffectLog effects;
  Vm::fakes::FakeKernel kernel{effects};
  rt::fakes::TraceRecorder traces;

  InterfaceFlags() { kernel.deviceIs("eth0", 2); }
};

ptrdiff_t openDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return std::distance(begin(all), end(all));
}

TEST_F(InterfaceFlags, SetADeviceDownAndUp) {
  EXPECT_EQ(ifUp("eth0", AdminState::down), 0);
  EXPECT_FALSE(kernel.device("eth0")->up());
  EXPECT_EQ(ifUp("eth0", AdminState::up), 0);
  EXPECT_TRUE(kernel.device("eth0")->up());
  EXPECT_THAT(effects.take(), ElementsAre("down eth0", "up eth0"));
}

TEST_F(InterfaceFlags, KeepTheOtherFlags) {
  ifUp("eth0", AdminState::down);
  EXPECT_EQ(kernel.device("eth0")->flags, IFF_BROADCAST | IFF_MULTICAST);
  ifUp("eth0", AdminState::up);
  EXPECT_EQ(kernel.device("eth0")->flags, IFF_UP | IFF_BROADCAST | IFF_MULTICAST);
}

TEST_F(InterfaceFlags, AreNotSetWhenTheyAreSoAlready) {
  EXPECT_EQ(ifUp("eth0", AdminState::up), 0);
  EXPECT_EQ(kernel.calls(KernelCall::getFlags), 1);
  EXPECT_EQ(kernel.calls(KernelCall::setFlags), 0);
}

TEST_F(InterfaceFlags, AreTracedOnEntry) {
  ifUp("eth0", AdminState::up);
  EXPECT_THAT(traces.take(), ElementsAre("7 ifUp ifname eth0 up true"));
}

TEST_F(InterfaceFlags, OfANameOf16CharactersGive19WithoutAnyIoctl) {
  EXPECT_EQ(ifUp("macvtap123456789", AdminState::up), 19);
  EXPECT_EQ(kernel.calls(KernelCall::getFlags), 0);
  EXPECT_EQ(kernel.calls(KernelCall::setFlags), 0);
  EXPECT_THAT(traces.take(1), ElementsAre("ifUpFAIL: invalid interface name"));
}

TEST_F(InterfaceFlags, OfANameOf15CharactersAreSet) {
  kernel.deviceIs("macvtap12345678", 3);
  EXPECT_EQ(ifUp("macvtap12345678", AdminState::down), 0);
  EXPECT_FALSE(kernel.device("macvtap12345678")->up());
}

TEST_F(InterfaceFlags, OfAMissingDeviceGiveTheKernelsError) {
  EXPECT_EQ(ifUp("eth1", AdminState::up), ENODEV);
  EXPECT_THAT(traces.take(1), ElementsAre("ifUpFAIL: cannot ioctl to get if flags"));
}

TEST_F(InterfaceFlags, WithoutASocketGiveItsError) {
  kernel.fail(KernelCall::packetSocket, EMFILE);
  EXPECT_EQ(ifUp("eth0", AdminState::down), EMFILE);
  EXPECT_EQ(kernel.calls(KernelCall::getFlags), 0);
  EXPECT_THAT(traces.take(1), ElementsAre("ifUpFAIL: cannot open socket to ioctl for ifUp"));
}

TEST_F(InterfaceFlags, ThatCannotBeReadGiveTheError) {
  kernel.fail(KernelCall::getFlags, EPERM);
  EXPECT_EQ(ifUp("eth0", AdminState::down), EPERM);
  EXPECT_EQ(kernel.calls(KernelCall::setFlags), 0);
  EXPECT_THAT(traces.take(1), ElementsAre("ifUpFAIL: cannot ioctl to get if flags"));
}

TEST_F(InterfaceFlags, ThatCannotBeSetGiveTheError) {
  kernel.fail(KernelCall::setFlags, EBUSY);
  EXPECT_EQ(ifUp("eth0", AdminState::down), EBUSY);
  EXPECT_TRUE(kernel.device("eth0")->up());
  EXPECT_THAT(traces.take(1), ElementsAre("ifUpFAIL: cannot ioctl to set if flags"));
}

TEST_F(InterfaceFlags, LeaveNoDescriptorBehindWhateverFails) {
  const auto before = openDescriptors();
  ifUp("eth0", AdminState::down);
  ifUp("eth0", AdminState::down);
  ifUp("macvtap123456789", AdminState::up);
  ifUp("eth1", AdminState::up);
  kernel.fail(KernelCall::packetSocket, EMFILE);
  ifUp("eth0", AdminState::up);
  kernel.fail(KernelCall::setFlags, EBUSY);
  ifUp("eth0", AdminState::up);
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(kernel.badCloses(), 0);
}

}  // namespace

}  // namespace netlink
