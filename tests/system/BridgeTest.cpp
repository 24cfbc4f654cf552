// The guests' static MAC entries on the kernel's own bridge, and what becomes of the frames.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <sstream>
#include <string_view>

#include "host/network/BridgeFdb.h"
#include "tests/system/DaemonWorld.h"

namespace host::fakes {
namespace {

using testing::HasSubstr;

constexpr std::string_view guestMac{"\x52\x54\x00\x12\x34\x56", 6};
constexpr std::string_view strangerMac{"\x52\x54\x00\x12\x34\x99", 6};

// The far end of a bridge's port.
class Wire {
 public:
  explicit Wire(const std::string& device)
      : socket_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, htons(ETH_P_ALL))) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex(device.c_str()));
    EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0) << device;
  }
  Wire(const Wire&) = delete;
  ~Wire() { close(socket_); }

  // A frame of an experimental protocol to that station, in a VLAN if it is not 0.
  void send(std::string_view to, std::string_view text, uint8_t vlan) const {
    std::string frame(to);
    frame.append("\x02\x00\x00\x00\x00\x01", 6);
    if (vlan != 0) frame.append("\x81\x00\x00", 3).append(1, static_cast<char>(vlan));
    frame.append("\x88\xb5").append(text);
    frame.resize(64, '\0');
    EXPECT_EQ(write(socket_, frame.data(), frame.size()), static_cast<ssize_t>(frame.size()));
  }
  // How many frames with that text have come, once the one with `last` has.
  int count(std::string_view text, std::string_view last) const {
    constexpr int patience = 10'000;  // milliseconds
    int found = 0;
    pollfd look{socket_, POLLIN, 0};
    while (poll(&look, 1, patience) == 1) {
      std::array<char, 256> bytes{};
      sockaddr_ll from{};
      socklen_t length = sizeof from;
      const ssize_t size = recvfrom(socket_, bytes.data(), bytes.size(), 0,
                                    reinterpret_cast<sockaddr*>(&from), &length);
      if (size <= 0 || from.sll_pkttype == PACKET_OUTGOING) continue;
      const std::string_view frame(bytes.data(), static_cast<size_t>(size));
      if (frame.find(last) != std::string_view::npos) return found;
      found += frame.find(text) != std::string_view::npos ? 1 : 0;
    }
    ADD_FAILURE() << "the last frame has not come";
    return found;
  }

 private:
  const int socket_;
};

// A bridge with two ports, where nobody has told yet where he is.
class Bridged : public testing::Test {
 protected:
  static constexpr int sent = 10;

  Bridged() {
    // Which forwards from the beginning, and says nothing by itself.
    ip("link add br0 type bridge stp_state 0 mcast_snooping 0");
    for (const char* const port : {"Ethernet1", "Ethernet2"}) {
      const std::string wire = std::string("wire-") + port;
      ip(std::string("link add ") + port + " type veth peer name " + wire);
      ip(std::string("link set ") + port + " master br0 up");
      ip("link set " + wire + " up");
    }
    ip("link set br0 up");
  }
  ~Bridged() override {
    for (const char* const device : {"br0", "Ethernet1", "Ethernet2"})
      ip(std::string("link del ") + device);
  }

  // How many of ten frames that come in at one port for that station go out at the other.
  static int flooded(std::string_view to, uint8_t vlan = 0) {
    static int round = 0;
    ++round;
    const std::string text = "round " + std::to_string(round) + ";";
    const std::string last = "end of " + text;
    const Wire in("wire-Ethernet1");
    const Wire out("wire-Ethernet2");
    for (int i = 0; i < sent; ++i) in.send(to, text, vlan);
    // What one station sends keeps its order.
    in.send(strangerMac, last, vlan);
    return out.count(text, last);
  }
};

TEST_F(Bridged, FramesForAGuestAreFloodedUntilItsAddressHasAPlace) {
  DaemonWorld world;
  world.start({"--shim", "off", "--bridge", "br0"});
  world.ctl({"interface", "set", "Vlan100", "--device", "br0"});
  world.addVm("web1", {"--nic", "model=e1000,mac=52:54:00:12:34:56,intf=Vlan100"});
  EXPECT_EQ(flooded(guestMac), sent);

  world.ctl({"enable", "web1"});
  ASSERT_TRUE(waitUntil([&] {
    return world.hasRow("fdb", "100/52:54:00:12:34:56", R"("bridge":"br0")");
  })) << world.log();
  EXPECT_EQ(flooded(guestMac), 0);
  EXPECT_EQ(flooded(strangerMac), sent) << "others are as before";
  EXPECT_THAT(run({"/sbin/bridge", "fdb", "show", "dev", "br0"}).out,
              HasSubstr("52:54:00:12:34:56 "));

  world.ctl({"disable", "web1", "--wait"});
  EXPECT_TRUE(waitUntil([] { return flooded(guestMac) == sent; }));
}

TEST_F(Bridged, AnEntryStopsTheFloodingAndItsRemovalBringsItBack) {
  const auto kernel = kernelBridges();
  const auto bridge = kernel->bridge("br0");
  ASSERT_TRUE(bridge);
  const BridgeEntry entry{*rt::EthAddr::fromText("52:54:00:12:34:56"), 0};
  EXPECT_EQ(flooded(guestMac), sent);
  EXPECT_EQ(kernel->add(*bridge, entry).added, BridgeKernel::Added::done);
  EXPECT_EQ(flooded(guestMac), 0);
  EXPECT_EQ(kernel->add(*bridge, entry).added, BridgeKernel::Added::wasThere);
  EXPECT_TRUE(kernel->remove(*bridge, entry));
  EXPECT_EQ(flooded(guestMac), sent);
  EXPECT_TRUE(kernel->remove(*bridge, entry)) << "it is removed already";
  EXPECT_TRUE(kernel->remove(*bridge, {entry.mac, 100})) << "a bridge without VLANs never had it";
}

// The same where the bridge keeps VLANs apart. This machine's kernel may be one that cannot.

class BridgedWithVlans : public Bridged {
 protected:
  static constexpr uint8_t ours = 100;
  static constexpr uint8_t another = 200;

  BridgedWithVlans() {
    std::ofstream("/sys/class/net/br0/bridge/vlan_filtering") << "1\n";
    for (const char* const vlan : {"100", "200"}) {
      for (const char* const port : {"Ethernet1", "Ethernet2"})
        bridgeVlan(std::string("add vid ") + vlan + " dev " + port);
      bridgeVlan(std::string("add vid ") + vlan + " dev br0 self");
    }
  }
  static void bridgeVlan(const std::string& arguments) {
    std::istringstream words(arguments);
    std::vector<std::string> command{"/sbin/bridge", "vlan"};
    for (std::string word; words >> word;) command.push_back(word);
    const Ended ended = run(command);
    EXPECT_EQ(ended.status, 0) << arguments << ": " << ended.err;
  }
};

TEST_F(BridgedWithVlans, AnEntryStopsTheFloodingInItsVlanOnly) {
  const auto kernel = kernelBridges();
  const auto bridge = kernel->bridge("br0");
  ASSERT_TRUE(bridge);
  ASSERT_TRUE(bridge->filtersVlans);
  const BridgeEntry entry{*rt::EthAddr::fromText("52:54:00:12:34:56"), ours};
  EXPECT_EQ(flooded(guestMac, ours), sent);
  EXPECT_EQ(kernel->add(*bridge, entry).added, BridgeKernel::Added::done);
  EXPECT_EQ(flooded(guestMac, ours), 0);
  EXPECT_EQ(flooded(guestMac, another), sent);
  kernel->remove(*bridge, entry);
  EXPECT_EQ(flooded(guestMac, ours), sent);
}

TEST_F(BridgedWithVlans, AnEntryOfAVlanThatTheBridgeDoesNotHaveIsRefusedAndItsRemovalIsNot) {
  const auto kernel = kernelBridges();
  const auto bridge = kernel->bridge("br0");
  ASSERT_TRUE(bridge);
  constexpr uint16_t missing = 300;
  const BridgeEntry entry{*rt::EthAddr::fromText("52:54:00:12:34:56"), missing};
  EXPECT_EQ(kernel->add(*bridge, entry).added, BridgeKernel::Added::failed);
  testing::internal::CaptureStderr();
  EXPECT_FALSE(kernel->remove(*bridge, entry)) << "it may have one";
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(BridgedWithVlans, AGuestHasItsPlaceInTheVlanOfItsInterface) {
  ip("link add link br0 name br0.100 type vlan id 100");
  ip("link set br0.100 up");
  DaemonWorld world;
  world.start({"--shim", "off", "--bridge", "br0"});
  world.ctl({"interface", "set", "Vlan100", "--device", "br0.100"});
  world.addVm("web1", {"--nic", "model=e1000,mac=52:54:00:12:34:56,intf=Vlan100"});
  EXPECT_EQ(flooded(guestMac, ours), sent);

  world.ctl({"enable", "web1"});
  ASSERT_TRUE(waitUntil([&] {
    return world.hasRow("fdb", "100/52:54:00:12:34:56", R"("bridge":"br0")");
  })) << world.log();
  EXPECT_EQ(flooded(guestMac, ours), 0);
  EXPECT_EQ(flooded(guestMac, another), sent);
  EXPECT_THAT(run({"/sbin/bridge", "fdb", "show", "dev", "br0"}).out,
              HasSubstr("52:54:00:12:34:56 vlan 100"));
  EXPECT_THAT(world.ctl({"fdb", "list", "-o", "wide"}), HasSubstr("br0"));

  // Without its VLAN the bridge keeps the entry, and lets nobody at it until it has that again.
  bridgeVlan("del vid 100 dev br0 self");
  EXPECT_TRUE(waitUntil([&] { return world.log().find("cannot be added") != std::string::npos; }));
  world.ctl({"disable", "web1", "--wait"});
  bridgeVlan("add vid 100 dev br0 self");
  EXPECT_TRUE(waitUntil([] { return flooded(guestMac, ours) == sent; }));
}

}  // namespace
}  // namespace host::fakes
