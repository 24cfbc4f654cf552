// What the daemon makes of the kernel's network devices, with a scripted QEMU.
#include <gmock/gmock.h>
#include <net/if.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/network/KernelLinks.h"
#include "tests/system/DaemonFixture.h"
#include "tests/system/PrivateMounts.h"

namespace host::fakes {
namespace {

using testing::HasSubstr;
using testing::Not;

// A port of that name and index.
void addPort(const std::string& name, const std::string& index = {}) {
  ip("link add " + name + index + " type veth peer name peer-" + name);
  ip("link set " + name + " up");
}

void makeAnew(const std::string& name) {
  const std::string index = " index " + std::to_string(if_nametoindex(name.c_str()));
  ip("link del " + name);
  addPort(name, index);
}

// The kernel's table.

TEST(KernelsLinks, AreOthersWhenTheyWereMadeAnewBetweenTwoLooks) {
  addPort("Ethernet1");
  KernelLinkSource source;
  const KernelLinkTable before = source.read();
  EXPECT_EQ(source.read(), before);
  const uint32_t index = if_nametoindex("Ethernet1");
  makeAnew("Ethernet1");
  const KernelLinkTable after = source.read();
  EXPECT_EQ(after.at(index).name, before.at(index).name);
  EXPECT_NE(after.at(index), before.at(index));
  EXPECT_EQ(source.read(), after);
}

TEST(KernelsLinks, AreTheSameWhenABridgeTookThemAndLetThemGo) {
  addPort("Ethernet1");
  ip("link add br0 type bridge");
  KernelLinkSource source;
  const KernelLinkTable before = source.read();
  ip("link set Ethernet1 master br0");
  ip("link set Ethernet1 nomaster");
  EXPECT_EQ(source.read(), before);
}

class DaemonInterfaces : public DaemonFixture {
 protected:
  void runVmOn(const std::string& interface) {
    world.addVm("web1",
                {"--nic", "model=e1000,mac=52:54:00:12:34:56,intf=" + interface, "--enabled"});
    ASSERT_TRUE(waitUntil([&] { return isOn("web1"); }));
  }
  // How often the guest was asked to attach its card, and to give it up.
  static int asked(const std::string& command) {
    std::ifstream file("/var/run/web1.requests");
    int count = 0;
    for (std::string line; std::getline(file, line);)
      count += line.find("\"" + command + "\"") != std::string::npos ? 1 : 0;
    return count;
  }
  static bool hasTap() { return if_nametoindex("macvtap0") != 0; }
};

TEST_F(DaemonInterfaces, AttachACardWhereItsInterfaceIs) {
  addPort("Ethernet1");
  world.start();
  runVmOn("Ethernet1");
  EXPECT_TRUE(waitUntil([&] { return asked("netdev_add") == 1; }));
  EXPECT_TRUE(hasTap());
  EXPECT_THAT(world.ctl({"interface", "list"}), HasSubstr("Ethernet1"));
}

TEST_F(DaemonInterfaces, LoseAndRegainTheirCard) {
  addPort("Ethernet1");
  world.start();
  runVmOn("Ethernet1");
  ASSERT_TRUE(waitUntil([&] { return asked("netdev_add") == 1; }));
  ip("link del Ethernet1");
  ASSERT_TRUE(waitUntil([&] { return asked("netdev_del") == 1; }));
  addPort("Ethernet1");
  EXPECT_TRUE(waitUntil([&] { return asked("netdev_add") == 2 && hasTap(); }));
}

TEST_F(DaemonInterfaces, MadeAnewUnderTheirNameAndIndexUnheardRegainTheirCard) {
  addPort("Ethernet1");
  world.start();
  runVmOn("Ethernet1");
  ASSERT_TRUE(waitUntil([&] { return asked("netdev_add") == 1; }));
  Vm::fakes::signalProcess(world.daemon(), SIGSTOP);
  makeAnew("Ethernet1");
  ASSERT_FALSE(hasTap());
  Vm::fakes::signalProcess(world.daemon(), SIGCONT);
  EXPECT_TRUE(waitUntil([&] { return asked("netdev_add") == 2 && hasTap(); }, 5)) << world.log();
}

TEST_F(DaemonInterfaces, ThatCameLaterGetTheirCardThen) {
  world.start();
  runVmOn("Ethernet1");
  EXPECT_EQ(asked("netdev_add"), 0);
  addPort("Ethernet1");
  EXPECT_TRUE(waitUntil([&] { return asked("netdev_add") == 1; }));
}

TEST_F(DaemonInterfaces, ThatAreRenamedAreAnotherInterface) {
  addPort("Ethernet1");
  world.start();
  runVmOn("Ethernet1");
  ASSERT_TRUE(waitUntil([&] { return asked("netdev_add") == 1; }));
  ip("link set Ethernet1 down");
  ip("link set Ethernet1 name Ethernet2");
  ASSERT_TRUE(waitUntil([&] { return asked("netdev_del") == 1; }));
  ip("link set Ethernet2 name Ethernet1");
  EXPECT_TRUE(waitUntil([&] { return asked("netdev_add") == 2; }));
}

TEST_F(DaemonInterfaces, AreNamedByTheConfiguration) {
  addPort("br0.100");
  world.start();
  runVmOn("Vlan100");
  EXPECT_EQ(asked("netdev_add"), 0);
  world.ctl({"interface", "set", "Vlan100", "--device", "br0.100"});
  ASSERT_TRUE(waitUntil([&] { return asked("netdev_add") == 1; }));
  ASSERT_TRUE(waitUntil([&] { return !world.row("fdb", "100/52:54:00:12:34:56").empty(); }));
  EXPECT_THAT(world.ctl({"fdb", "list"}), HasSubstr("52:54:00:12:34:56"));
}

TEST_F(DaemonInterfaces, ThatAreWithdrawnWhileTheirDeviceStaysCanBeAttachedAgain) {
  addPort("br0.100");
  world.start();
  world.ctl({"interface", "set", "Vlan100", "--device", "br0.100"});
  runVmOn("Vlan100");
  ASSERT_TRUE(waitUntil([&] { return asked("netdev_add") == 1; }));
  world.ctl({"interface", "unset", "Vlan100"});
  ASSERT_TRUE(waitUntil([&] { return asked("netdev_del") == 1; }));
  EXPECT_TRUE(waitUntil([] { return !hasTap(); }));
  world.ctl({"interface", "set", "Vlan100", "--device", "br0.100"});
  EXPECT_TRUE(waitUntil([&] { return asked("netdev_add") == 2 && hasTap(); }));
}

TEST_F(DaemonInterfaces, ThatGetAnotherDeviceTakeTheirCardThere) {
  addPort("portA");
  addPort("portB");
  world.start();
  world.ctl({"interface", "set", "Vlan100", "--device", "portA"});
  runVmOn("Vlan100");
  ASSERT_TRUE(waitUntil([&] { return asked("netdev_add") == 1; }));
  world.ctl({"interface", "set", "Vlan100", "--device", "portB"});
  ASSERT_TRUE(waitUntil([&] { return asked("netdev_add") == 2; }));
  const auto lower = run({"/sbin/ip", "-o", "link", "show", "type", "macvtap"}).out;
  EXPECT_THAT(lower, HasSubstr("@portB"));
  EXPECT_THAT(lower, Not(HasSubstr("@portA")));
}

TEST_F(DaemonInterfaces, ThatFlapAThousandTimesEndAsTheyAre) {
  addPort("Ethernet1");
  world.start();
  runVmOn("Ethernet1");
  ASSERT_TRUE(waitUntil([&] { return asked("netdev_add") == 1; }));
  std::ofstream batch("/var/run/batch");
  for (int i = 0; i < 1000; ++i)
    batch << "link del Ethernet1\nlink add Ethernet1 type veth peer name peer-Ethernet1\n"
          << "link set Ethernet1 up\n";
  batch.close();
  ip("-batch /var/run/batch");
  ASSERT_TRUE(waitUntil(
      [&] {
        return hasTap() && asked("netdev_add") == asked("netdev_del") + 1 &&
               world.hasRow("interfaceStatus", "Ethernet1", R"("present":true)");
      },
      90))
      << asked("netdev_add") << " " << asked("netdev_del") << " " << world.row("vmProblem", "web1")
      << world.row("interfaceStatus", "Ethernet1") << world.log();
  EXPECT_TRUE(isOn("web1"));
  // A device that the card got beside an earlier one cannot go up: the card is cured of both.
  std::string taps;
  EXPECT_TRUE(waitUntil(
      [&] {
        taps = run({"/sbin/ip", "-o", "link", "show", "type", "macvtap"}).out;
        return std::count(taps.begin(), taps.end(), '\n') == 1;
      },
      10))
      << taps << world.row("vmProblem", "web1") << world.log();
}

// Whether the kernel had to drop news of network devices that somebody in this network listens to.
bool newsWasLost() {
  std::ifstream sockets("/proc/net/netlink");
  std::string line;
  std::getline(sockets, line);  // the columns' names
  while (std::getline(sockets, line)) {
    std::istringstream columns(line);
    std::string socket;
    int protocol = 0;
    std::string other;
    long drops = 0;
    columns >> socket >> protocol;
    for (int skipped = 0; skipped < 6; ++skipped) columns >> other;
    columns >> drops;
    if (protocol == 0 && drops > 0) return true;
  }
  return false;
}

TEST_F(DaemonInterfaces, WhoseNewsIsLostAreSeenAsTheyAre) {
  addPort("Ethernet1");
  addPort("Ethernet2");
  world.start();
  runVmOn("Ethernet1");
  ASSERT_TRUE(waitUntil([&] { return asked("netdev_add") == 1; }));
  Vm::fakes::signalProcess(world.daemon(), SIGSTOP);
  std::ofstream batch("/var/run/batch");
  for (int i = 0; i < 5000; ++i) batch << "link set Ethernet2 alias news" << i << "\n";
  batch << "link del Ethernet1\n";
  batch.close();
  ip("-batch /var/run/batch");
  EXPECT_TRUE(newsWasLost());
  Vm::fakes::signalProcess(world.daemon(), SIGCONT);
  EXPECT_TRUE(waitUntil([&] {
    return asked("netdev_del") == 1 && world.row("interfaceStatus", "Ethernet1").empty();
  })) << world.log();
  addPort("Ethernet1");
  EXPECT_TRUE(waitUntil([&] { return asked("netdev_add") == 2 && hasTap(); })) << world.log();
}

TEST_F(DaemonInterfaces, KeepNoDeviceOfAnEarlierDaemon) {
  addPort("Ethernet1");
  world.start();
  runVmOn("Ethernet1");
  ASSERT_TRUE(waitUntil([&] { return asked("netdev_add") == 1; }));
  world.end(SIGKILL);
  std::filesystem::remove("/var/run/web1.requests");
  world.start();
  ASSERT_TRUE(waitUntil([&] { return asked("netdev_add") == 1; }));
  const auto taps = run({"/sbin/ip", "-o", "link", "show", "type", "macvtap"}).out;
  EXPECT_EQ(std::count(taps.begin(), taps.end(), '\n'), 1) << taps;
}

TEST_F(DaemonInterfaces, LeaveNothingBehindWhenTheVmIsOff) {
  addPort("Ethernet1");
  world.start();
  runVmOn("Ethernet1");
  ASSERT_TRUE(waitUntil([&] { return asked("netdev_add") == 1; }));
  world.ctl({"disable", "web1", "--wait"});
  EXPECT_FALSE(hasTap());
}

// The kernel's bridge.

class DaemonBridge : public DaemonInterfaces {
 protected:
  // Of the bridge's own. A macvtap device on it is shown, too, but as an address of the device.
  static bool hasEntry(const std::string& mac) {
    const auto shown = run({"/sbin/bridge", "fdb", "show", "dev", "br0"}).out;
    return shown.find(mac + " master br0 permanent") != std::string::npos;
  }
  void runVmOnBridge() {
    ip("link add br0 type bridge");
    ip("link set br0 up");
    world.start({"--shim", "off", "--bridge", "br0"});
    world.ctl({"interface", "set", "Vlan100", "--device", "br0"});
    runVmOn("Vlan100");
    ASSERT_TRUE(waitUntil([] { return hasEntry("52:54:00:12:34:56"); }));
  }
};

TEST_F(DaemonBridge, HasAGuestsAddressForAsLongAsTheGuestRuns) {
  runVmOnBridge();
  EXPECT_TRUE(
      waitUntil([&] { return world.hasRow("fdb", "100/52:54:00:12:34:56", R"("bridge":"br0")"); }));
  world.ctl({"disable", "web1", "--wait"});
  EXPECT_TRUE(waitUntil([] { return !hasEntry("52:54:00:12:34:56"); }));
}

TEST_F(DaemonBridge, GetsTheAddressesBackWhenItIsMadeAnew) {
  runVmOnBridge();
  ip("link del br0");
  ip("link add br0 type bridge");
  ip("link set br0 up");
  EXPECT_TRUE(waitUntil([] { return hasEntry("52:54:00:12:34:56"); }));
}

TEST_F(DaemonBridge, GetsAnAddressBackThatSomebodyRemoved) {
  runVmOnBridge();
  ASSERT_EQ(run({"/sbin/bridge", "fdb", "del", "52:54:00:12:34:56", "dev", "br0", "self"}).status,
            0);
  ASSERT_FALSE(hasEntry("52:54:00:12:34:56"));
  EXPECT_TRUE(waitUntil([] { return hasEntry("52:54:00:12:34:56"); }, 7));
}

TEST_F(DaemonBridge, KeepsEntriesOfOthers) {
  runVmOnBridge();
  EXPECT_EQ(
      run({"/sbin/bridge", "fdb", "add", "52:54:00:00:00:99", "dev", "br0", "self", "permanent"})
          .status,
      0);
  world.ctl({"remove", "web1", "--force", "--wait"});
  ASSERT_TRUE(waitUntil([] { return !hasEntry("52:54:00:12:34:56"); }));
  EXPECT_TRUE(hasEntry("52:54:00:00:00:99"));
}

TEST_F(DaemonBridge, LosesWhatADaemonThatWasKilledHadPutThere) {
  runVmOnBridge();
  world.end(SIGKILL);
  world.ctl({"disable", "web1"});
  EXPECT_TRUE(hasEntry("52:54:00:12:34:56"));
  world.start({"--shim", "off", "--bridge", "br0"});
  EXPECT_TRUE(waitUntil([] { return !hasEntry("52:54:00:12:34:56"); }));
}

}  // namespace
}  // namespace host::fakes
