// What a guest's card lets through of what it sends, on real macvtap devices.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <net/if.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "host/base/TapNode.h"
#include "host/network/SenderFilter.h"
#include "tests/system/DaemonFixture.h"
#include "tests/system/Frames.h"

namespace host::fakes {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* own = "52:54:00:12:34:01";

// Frames are sent from the card's device as its guest's are.
class CardSender : public DaemonFixture {
 protected:
  CardSender() {
    ip("link add Ethernet1 type veth peer name peer1");
    ip("link set peer1 up");
    ip("link set Ethernet1 up");
  }
  static int received() {
    int packets = -1;
    std::ifstream("/sys/class/net/peer1/statistics/rx_packets") >> packets;
    return packets;
  }
  // How many of so many frames arrive.
  static int arriving(const std::string& device, const char* sender, int count = 10) {
    const FrameSource source(device);
    const int before = received();
    for (int i = 0; i < count; ++i) (void)source.send(everybody, sender);
    (void)waitUntil([&] { return received() - before >= count; }, 0.2);
    return received() - before;
  }
  // How many of three thousand long frames arrive that are sent as fast as can be.
  static int arrivingOfAFlood(const std::string& device) {
    constexpr int count = 3000;
    constexpr size_t size = 1400;
    const FrameSource source(device);
    const int before = received();
    for (int i = 0; i < count; ++i) (void)source.send(everybody, own, size);
    (void)waitUntil([&] { return received() - before >= count; }, 0.5);
    return received() - before;
  }
  static void quiet() { (void)run({"/sbin/sysctl", "-qw", "net.ipv6.conf.all.disable_ipv6=1"}); }
  static std::string filters(const std::string& device) {
    return run({"/sbin/tc", "filter", "show", "dev", device, "egress"}).out;
  }
  void attach(const std::string& macs) {
    world.start({"--shim", "off", "--guest-macs", macs});
    world.addVm("web1",
                {"--nic", std::string("model=e1000,intf=Ethernet1,mac=") + own, "--enabled"});
    ASSERT_TRUE(waitUntil([] { return if_nametoindex("macvtap0") != 0; })) << world.log();
    ASSERT_TRUE(waitUntil([] { return arriving("macvtap0", own, 1) >= 1; })) << world.log();
  }
};

TEST_F(CardSender, IsHeldToTheAddressThatIsSetLast) {
  quiet();
  ip(std::string("link add link Ethernet1 name macvtap7 address ") + own +
     " type macvtap mode bridge");
  ip("link set macvtap7 up");
  EXPECT_EQ(arriving("macvtap7", "52:54:00:12:34:02"), 10);
  KernelSenderFilter filter;
  const uint32_t device = if_nametoindex("macvtap7");
  ASSERT_EQ(filter.set(device, rt::EthAddr(rt::String(own))), "");
  EXPECT_EQ(arriving("macvtap7", own), 10);
  for (const char* const other :
       {"52:54:00:12:34:02", "52:54:00:13:34:01", "53:54:00:12:34:01", "52:54:00:12:35:01"})
    EXPECT_EQ(arriving("macvtap7", other), 0) << other;
  ASSERT_EQ(filter.set(device, rt::EthAddr(rt::String("52:54:00:12:34:02"))), "");
  EXPECT_EQ(arriving("macvtap7", own), 0);
  EXPECT_EQ(arriving("macvtap7", "52:54:00:12:34:02"), 10);
  EXPECT_THAT(filter.set(4711, rt::EthAddr()), HasSubstr("clsact"));
}

TEST_F(CardSender, IsTheCardsAddressWhereTheDaemonHasAttachedIt) {
  quiet();
  attach("own");
  EXPECT_TRUE(waitUntil([] { return arriving("macvtap0", "52:54:00:12:34:02", 3) == 0; }));
  EXPECT_EQ(arriving("macvtap0", own), 10);
  EXPECT_THAT(world.log(), Not(HasSubstr("any address")));
}

// As whoever may configure a card can have it.
TEST_F(CardSender, OfAnotherProgramsDeviceWithACardsAddressIsNeitherHeldNorLimited) {
  quiet();
  world.start();
  world.addVm("web1", {"--nic", std::string("model=e1000,intf=Ethernet1,mac=") + own});
  world.ctl({"set", "web1", "rateLimit=1"});
  ip("link add link Ethernet1 name macvtap7 type macvtap mode bridge");
  const uint32_t index = if_nametoindex("macvtap7");
  const std::string node = "/dev/tap" + std::to_string(index);
  ASSERT_TRUE(access(node.c_str(), F_OK) == 0 ||
              mknod(node.c_str(), S_IFCHR | 0600, tapNode("macvtap7", index)) == 0);
  const rt::Descriptor open(::open(node.c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_TRUE(open);
  ip(std::string("link set macvtap7 address ") + own);
  // Of one that nobody has open is heard later.
  ip(std::string("link add link Ethernet1 name macvtap8 address ") + own +
     " type macvtap mode bridge");
  const auto queue = [](const char* device) {
    return run({"/sbin/tc", "qdisc", "show", "dev", device}).out;
  };
  ASSERT_TRUE(waitUntil([&] { return queue("macvtap8").find("tbf") != std::string::npos; }));
  EXPECT_THAT(queue("macvtap7"), Not(HasSubstr("tbf")));
  EXPECT_THAT(filters("macvtap7"), Not(HasSubstr("vmagent")));
}

TEST_F(CardSender, MayBeAnyWhereTheDaemonIsToldSo) {
  quiet();
  attach("any");
  EXPECT_EQ(arriving("macvtap0", "52:54:00:12:34:02"), 10);
  EXPECT_THAT(filters("macvtap0"), Not(HasSubstr("vmagent")));
}

// At a megabit a second some thirty go in the time, and were it ten times as long, no five hundred.
TEST_F(CardSender, SendsNoMoreThanItsRate) {
  quiet();
  attach("own");
  const int unbounded = arrivingOfAFlood("macvtap0");  // as many as the other end has room for
  EXPECT_GE(unbounded, 100);
  world.ctl({"set", "web1", "rateLimit=1"});
  const auto queue = [] { return run({"/sbin/tc", "qdisc", "show", "dev", "macvtap0"}).out; };
  ASSERT_TRUE(waitUntil([&] { return queue().find("tbf 766d: root") != std::string::npos; }))
      << queue() << world.log();
  EXPECT_THAT(queue(), HasSubstr("rate 1Mbit"));
  const int arrived = arrivingOfAFlood("macvtap0");
  EXPECT_GE(arrived, 5);
  EXPECT_LT(arrived, unbounded);
  world.ctl({"set", "web1", "rateLimit=0"});
  EXPECT_TRUE(waitUntil([&] { return queue().find("tbf") == std::string::npos; })) << queue();
}

TEST_F(CardSender, IsHeldWhileNoDaemonRuns) {
  quiet();
  attach("own");
  ASSERT_TRUE(waitUntil([] { return filters("macvtap0").find("vmagent") != std::string::npos; }));
  world.end(SIGKILL);
  EXPECT_EQ(arriving("macvtap0", "52:54:00:12:34:02"), 0);
}

// What the guest sends, its device sends.
TEST_F(CardSender, IsCountedByTopAsItsGuestSeesIt) {
  quiet();
  attach("own");
  const auto count = [&](const char* counter) {
    const std::string top = world.ctl({"top", "-n", "1", "-o", "json"});
    const size_t at = top.find("\"" + std::string(counter) + "\":");
    return at == std::string::npos ? -1 : std::atoi(top.c_str() + top.find(':', at) + 1);
  };
  const int sent = count("sentPackets");
  const int heard = count("receivedPackets");
  ASSERT_GE(sent, 1);
  ASSERT_GE(heard, 0);
  const FrameSource guest("macvtap0");
  for (int i = 0; i < 5; ++i) (void)guest.send(everybody, own);
  EXPECT_TRUE(waitUntil([&] { return count("sentPackets") >= sent + 5; }));
  const FrameSource wire("peer1");
  for (int i = 0; i < 7; ++i) (void)wire.send(own);
  EXPECT_TRUE(waitUntil([&] { return count("receivedPackets") >= heard + 7; }));
  EXPECT_LT(count("sentPackets"), sent + 7);
}

}  // namespace
}  // namespace host::fakes
