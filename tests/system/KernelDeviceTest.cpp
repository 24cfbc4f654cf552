// The kernel's real network devices, as netlink/ makes and unmakes them.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <thread>

#include "Vm/Monitor/fakes/QmpPeer.h"
#include "netlink/InterfaceFlags.h"
#include "netlink/Macvtap.h"
#include "netlink/MacvtapSetup.h"
#include "netlink/TapNode.h"
#include "runtime/base/Check.h"
#include "runtime/fakes/TraceRecorder.h"
#include "tests/system/KernelSandbox.h"
#include "tests/system/PrivateMounts.h"

namespace netlink {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Vm::fakes::ip;
using Vm::fakes::kernelDevice;
using Vm::fakes::OwnedDescriptor;

// What a tap puts before each frame, at first: a virtio_net_hdr.
constexpr size_t tapHeader = 10;

constexpr char mac[] = "\x52\x54\x00\x12\x34\x56";
constexpr char otherMac[] = "\x52\x54\x00\x12\x34\x57";

int pauses = 0;
void countPause() { ++pauses; }
// As udevd does, while the agent waits: the node is there after the first pause.
void pauseForUdev() {
  if (++pauses == 1) Vm::fakes::makeTapNode("macvtap0");
}
void pauseForUdevOfTheSecond() {
  if (++pauses == 1) Vm::fakes::makeTapNode("macvtap1");
}
// A node-maker on a thread of its own that takes 2 s, which nobody waits for.
void pauseForALateThread() {
  if (++pauses == 20) std::thread([] { Vm::fakes::makeTapNode("macvtap0"); }).join();
}

class KernelDevice : public testing::Test {
 protected:
  KernelDevice() {
    pauses = 0;
    ip("link add low0 type veth peer name peer0");
    ip("link set low0 up");
    ip("link set peer0 up");
  }
  // With a lower device go the macvtaps on it.
  ~KernelDevice() override {
    if (kernelDevice("low0")) ip("link del low0");
  }

  rt::fakes::TraceRecorder traces;
};

TEST_F(KernelDevice, IsMadeWithItsAddressModeAndLowerDevice) {
  int index = 0;
  ASSERT_EQ(deviceAdd(mac, "macvtap0", "low0", macvlanModeBridge, &index), 0);
  const auto made = kernelDevice("macvtap0");
  ASSERT_TRUE(made);
  EXPECT_EQ(made->kind, "macvtap");
  EXPECT_EQ(made->macvtapMode, 4U);
  EXPECT_EQ(made->mac, "52:54:00:12:34:56");
  EXPECT_EQ(made->lower, kernelDevice("low0")->index);
  EXPECT_EQ(static_cast<uint32_t>(index), made->index);
  EXPECT_FALSE(made->up);
  EXPECT_THAT(traces.take(1), IsEmpty());
}

TEST_F(KernelDevice, IsSetUpAndDown) {
  deviceAdd(mac, "macvtap0", "low0", macvlanModeBridge, nullptr);
  EXPECT_EQ(ifUp("macvtap0", AdminState::up), 0);
  EXPECT_TRUE(kernelDevice("macvtap0")->up);
  EXPECT_EQ(ifUp("macvtap0", AdminState::up), 0);
  EXPECT_EQ(ifUp("macvtap0", AdminState::down), 0);
  EXPECT_FALSE(kernelDevice("macvtap0")->up);
}

TEST_F(KernelDevice, IsRemoved) {
  deviceAdd(mac, "macvtap0", "low0", macvlanModeBridge, nullptr);
  deviceRemove("macvtap0");
  EXPECT_FALSE(kernelDevice("macvtap0"));
  EXPECT_THAT(traces.take(1), IsEmpty());
}

TEST_F(KernelDevice, ThatIsNotThereCannotBeRemoved) {
  deviceRemove("macvtap7");
  EXPECT_THAT(traces.take(1), ElementsAre("deviceRemove FAIL: cannot delete device macvtap7"));
}

TEST_F(KernelDevice, OfAnEmptyNameIsNone) {
  deviceRemove("");
  EXPECT_THAT(traces.take(1), ElementsAre("deviceRemove FAIL: cannot delete device "));
  EXPECT_TRUE(kernelDevice("lo"));
  EXPECT_TRUE(kernelDevice("low0"));
}

// libnl cuts names off at 15.
TEST_F(KernelDevice, OfANameOf16CharactersIsMadeUnderTheFirst15AndCannotBeSetUp) {
  EXPECT_EQ(deviceAdd(mac, "macvtap123456789", "low0", macvlanModeBridge, nullptr), 0);
  EXPECT_TRUE(kernelDevice("macvtap12345678"));
  EXPECT_EQ(ifUp("macvtap123456789", AdminState::up), 19);
  EXPECT_FALSE(kernelDevice("macvtap12345678")->up);
  EXPECT_THAT(traces.take(1), ElementsAre("ifUpFAIL: invalid interface name"));
}

TEST_F(KernelDevice, CanHaveANameOf15Characters) {
  EXPECT_EQ(deviceAdd(mac, "macvtap12345678", "low0", macvlanModeBridge, nullptr), 0);
  EXPECT_EQ(ifUp("macvtap12345678", AdminState::up), 0);
}

TEST_F(KernelDevice, CannotBeMadeOnAMissingDevice) {
  EXPECT_LT(deviceAdd(mac, "macvtap0", "low1", macvlanModeBridge, nullptr), 0);
  EXPECT_THAT(traces.take(1), ElementsAre("deviceAddFAIL: cannot get low1's ifindex "));
}

TEST_F(KernelDevice, CannotBeMadeOnABridgesPort) {
  ip("link add br0 type bridge");
  ip("link set low0 master br0");
  const MacvtapSetup made = setupMacvtap("low0", mac, countPause);
  EXPECT_EQ(made.fd, -1);
  EXPECT_FALSE(made.leftover);
  EXPECT_FALSE(kernelDevice("macvtap0"));
  EXPECT_THAT(traces.take(1), ElementsAre("deviceAdd FAIL: cannot send to nl socket ",
                                          "setupMacvtap FAIL: deviceAdd failed for macvtap0"));
  ip("link del br0");
}

TEST_F(KernelDevice, CanBeMadeOnABridge) {
  ip("link add br0 type bridge");
  ip("link set low0 master br0");
  const OwnedDescriptor tap(setupMacvtap("br0", mac, pauseForUdev).fd);
  EXPECT_GE(tap, 0);
  ip("link del br0");
}

TEST_F(KernelDevice, IsOpenedAtItsTapNode) {
  const MacvtapSetup made = setupMacvtap("low0", mac, pauseForUdev);
  const OwnedDescriptor tap(made.fd);
  EXPECT_GE(tap, 0);
  EXPECT_STREQ(made.name, "macvtap0");
  EXPECT_TRUE(kernelDevice("macvtap0")->up);
  EXPECT_EQ(fcntl(tap, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(pauses, 1);
}

TEST_F(KernelDevice, IsOpenedAtATapNodeThatAThreadMakesTwoSecondsLate) {
  const OwnedDescriptor tap(setupMacvtap("low0", mac, pauseForALateThread).fd);
  EXPECT_GE(tap, 0);
  EXPECT_EQ(pauses, 20);
}

TEST_F(KernelDevice, WithoutATapNodeIsLeftDownForItsCallerToDelete) {
  const MacvtapSetup made = setupMacvtap("low0", mac, countPause);
  EXPECT_EQ(made.fd, -1);
  EXPECT_TRUE(made.leftover);
  EXPECT_EQ(pauses, 100);
  ASSERT_TRUE(kernelDevice("macvtap0"));
  EXPECT_FALSE(kernelDevice("macvtap0")->up);
}

TEST_F(KernelDevice, ThatIsMissingIsSoughtAtTapZero) {
  EXPECT_EQ(openTap("macvtap9", countPause), -1);
  EXPECT_EQ(pauses, 100);
  EXPECT_THAT(traces.take(1), ElementsAre("openTapFAIL: no such device",
                                          "openTap FAIL: cannot open macvtap device /dev/tap0 "
                                          "check if udevd is running "));
}

TEST_F(KernelDevice, OfAnAddressThatIsUpAlreadyCannotBeSetUp) {
  const OwnedDescriptor first(setupMacvtap("low0", mac, pauseForUdev).fd);
  ASSERT_GE(first, 0);
  const MacvtapSetup second = setupMacvtap("low0", mac, countPause);
  EXPECT_EQ(second.fd, -1);
  EXPECT_TRUE(second.leftover);
  EXPECT_STREQ(second.name, "macvtap1");
  EXPECT_THAT(traces.take(1),
              ElementsAre("ifUpFAIL: cannot ioctl to set if flags",
                          "setupMacvtap FAIL: cannot 'up' interface macvtap1 -- another macvtap "
                          "device may be 'up' and have the same MAC address "));
  deviceRemove(second.name);
  EXPECT_FALSE(kernelDevice("macvtap1"));
}

TEST_F(KernelDevice, OfAnotherAddressStandsBesideTheFirst) {
  const OwnedDescriptor first(setupMacvtap("low0", mac, pauseForUdev).fd);
  pauses = 0;
  const OwnedDescriptor second(setupMacvtap("low0", otherMac, pauseForUdevOfTheSecond).fd);
  EXPECT_GE(first, 0);
  EXPECT_GE(second, 0);
}

TEST_F(KernelDevice, GoesWithItsLowerDevice) {
  const OwnedDescriptor tap(setupMacvtap("low0", mac, pauseForUdev).fd);
  ip("link del low0");
  EXPECT_FALSE(kernelDevice("macvtap0"));
  EXPECT_EQ(ifUp("macvtap0", AdminState::up), ENODEV);
  deviceRemove("macvtap0");
  EXPECT_THAT(traces.take(1), ElementsAre("ifUpFAIL: cannot ioctl to get if flags",
                                          "deviceRemove FAIL: cannot delete device macvtap0"));
}

TEST_F(KernelDevice, IsRemovedWhileItsTapIsOpen) {
  const OwnedDescriptor tap(setupMacvtap("low0", mac, pauseForUdev).fd);
  deviceRemove("macvtap0");
  EXPECT_FALSE(kernelDevice("macvtap0"));
}

// Traffic.

// A frame of an experimental protocol between two stations.
std::string frame(std::string_view to, std::string_view from, std::string_view text) {
  std::string bytes(to);
  bytes += from;
  bytes += "\x88\xb5";
  bytes += text;
  bytes.resize(64, '\0');
  return bytes;
}
constexpr std::string_view peerMac{"\x02\x00\x00\x00\x00\x01", 6};
constexpr std::string_view guestMac{mac, 6};

// All frames on a device.
OwnedDescriptor wireOf(const char* device) {
  OwnedDescriptor wire(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL)));
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = static_cast<int>(if_nametoindex(device));
  rt::check(bind(wire, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0, "bind");
  return wire;
}

// Reads until `wanted` comes; what else the kernel sends is passed over.
bool comes(int descriptor, size_t headerLength, const std::string& wanted) {
  char bytes[4096];
  pollfd ready{descriptor, POLLIN, 0};
  while (poll(&ready, 1, 2000) > 0) {
    const ssize_t length = read(descriptor, bytes, sizeof bytes);
    if (length <= 0) return false;
    const std::string_view got(bytes, static_cast<size_t>(length));
    if (got.size() >= headerLength && got.substr(headerLength) == wanted) return true;
  }
  return false;
}

TEST_F(KernelDevice, CarriesFramesToItsTap) {
  const OwnedDescriptor tap(setupMacvtap("low0", mac, pauseForUdev).fd);
  const OwnedDescriptor wire = wireOf("peer0");
  const std::string sent = frame(guestMac, peerMac, "to the guest");
  ASSERT_EQ(write(wire, sent.data(), sent.size()), static_cast<ssize_t>(sent.size()));
  EXPECT_TRUE(comes(tap, tapHeader, sent));
}

TEST_F(KernelDevice, CarriesFramesFromItsTap) {
  const OwnedDescriptor tap(setupMacvtap("low0", mac, pauseForUdev).fd);
  const OwnedDescriptor wire = wireOf("peer0");
  const std::string sent = frame(peerMac, guestMac, "from the guest");
  const std::string withHeader = std::string(tapHeader, '\0') + sent;
  ASSERT_EQ(write(tap, withHeader.data(), withHeader.size()),
            static_cast<ssize_t>(withHeader.size()));
  EXPECT_TRUE(comes(wire, 0, sent));
}

TEST_F(KernelDevice, CarriesFramesToTheOtherDevicesOnItsLowerOne) {
  const OwnedDescriptor first(setupMacvtap("low0", mac, pauseForUdev).fd);
  pauses = 0;
  const OwnedDescriptor second(setupMacvtap("low0", otherMac, pauseForUdevOfTheSecond).fd);
  const std::string sent = frame({otherMac, 6}, guestMac, "to my neighbour");
  const std::string withHeader = std::string(tapHeader, '\0') + sent;
  ASSERT_EQ(write(first, withHeader.data(), withHeader.size()),
            static_cast<ssize_t>(withHeader.size()));
  EXPECT_TRUE(comes(second, tapHeader, sent));
}

}  // namespace

}  // namespace netlink

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  if (!testing::GTEST_FLAG(list_tests))
    if (const auto needs = Vm::fakes::enterKernelSandbox(); !needs.empty())
      return Vm::fakes::leaveOut("kernel_device_test", needs);
  return RUN_ALL_TESTS();
}
