// Which macvtap devices there are, which the daemon deletes, which it leaves to others and which it
// makes anew, with scripted QEMUs.
#include <gmock/gmock.h>
#include <net/if.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

#include "host/base/TapNode.h"
#include "host/network/Taps.h"
#include "runtime/base/Check.h"
#include "runtime/net/EthAddr.h"
#include "tests/system/DaemonFixture.h"
#include "tests/system/Frames.h"
#include "tests/system/PrivateMounts.h"

namespace host::fakes {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* firstMac = "52:54:00:12:34:01";
constexpr const char* secondMac = "52:54:00:12:34:02";

// The kernel's list.

TEST(KernelsTaps, AreTheMacvtapDevicesOnlyAndSayWhereTheyStandAndWhetherTheyAreUp) {
  EXPECT_THAT(host::taps(), IsEmpty());
  ip("link add Ethernet1 type veth peer name peer-Ethernet1");
  ip("link add link Ethernet1 name lan0 type macvlan mode bridge");
  ip("link add link Ethernet1 name macvtap0 address 52:54:00:12:34:01 type macvtap mode bridge");
  ip("link add link Ethernet1 name tap7 address 52:54:00:12:34:02 type macvtap mode bridge");
  ip("link set macvtap0 up");
  const uint32_t port = if_nametoindex("Ethernet1");
  const auto expected = [port](const char* name, const char* mac, bool isUp) {
    const uint32_t index = if_nametoindex(name);
    const dev_t node = tapNode(name, index);
    EXPECT_NE(node, 0U);
    return Tap{name, rt::EthAddr(rt::String(mac)), port, isUp, index, node};
  };
  EXPECT_THAT(host::taps(), ElementsAre(expected("macvtap0", firstMac, true),
                                        expected("tap7", secondMac, false)));
}

class DaemonCards : public DaemonFixture {
 protected:
  static void addPort(const std::string& name) {
    ip("link add " + name + " type veth peer name peer-" + name);
    ip("link set peer-" + name + " up");
    ip("link set " + name + " up");
  }
  // A VM on that interface, whose card is attached.
  void runVmOn(const std::string& vm, const std::string& mac, const std::string& interface) {
    world.addVm(vm, {"--nic", "model=e1000,mac=" + mac + ",intf=" + interface, "--enabled"});
    ASSERT_TRUE(waitUntil([&] { return isOn(vm) && asked(vm, "set_link") == 1; })) << world.log();
  }
  void startWithFirst() {
    addPort("Ethernet1");
    addPort("Ethernet2");
    world.start();
    runVmOn("first", firstMac, "Ethernet1");
    ASSERT_EQ(macOf("macvtap0"), firstMac);
  }
  // Waits until all is as it stays: the guest is seen to run, and was polled again since.
  void settle(const std::string& vm) {
    ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmStatus", vm, R"("state":"Running")"); }));
    const int polls = asked(vm, "query-status");
    ASSERT_TRUE(waitUntil([&] { return asked(vm, "query-status") > polls; }));
  }
  // The first VM's interface goes with its device, and the second's gets a device of that name.
  void passTheNameOn() {
    startWithFirst();
    ip("link del Ethernet1");
    ASSERT_TRUE(waitUntil([] { return asked("first", "netdev_del") == 1; }));
    runVmOn("second", secondMac, "Ethernet2");
    ASSERT_EQ(macOf("macvtap0"), secondMac);
  }
  // What goes to the second VM's address comes to its device, which it was not asked to give up
  // more often than so.
  void expectSecondIsAsItWas(int givenUp = 0) {
    EXPECT_THAT(taps(), HasSubstr("macvtap0@Ethernet2"));
    EXPECT_EQ(macOf("macvtap0"), secondMac);
    EXPECT_EQ(asked("second", "netdev_del"), givenUp);
    const int before = received("macvtap0");
    EXPECT_TRUE(FrameSource("peer-Ethernet2").send(secondMac));
    EXPECT_TRUE(waitUntil([&] { return received("macvtap0") > before; }, 2));
    EXPECT_TRUE(waitUntil([&] { return world.row("vmProblem", "second").empty(); }));
  }

  // How often the guest was asked that.
  static int asked(const std::string& vm, const std::string& command) {
    std::ifstream file("/var/run/" + vm + ".requests");
    int count = 0;
    for (std::string line; std::getline(file, line);)
      count += line.find("\"" + command + "\"") != std::string::npos ? 1 : 0;
    return count;
  }
  static std::string fact(const std::string& device, const std::string& name) {
    std::string text;
    std::ifstream("/sys/class/net/" + device + "/" + name) >> text;
    return text;
  }
  // Empty when there is no such device.
  static std::string macOf(const std::string& device) { return fact(device, "address"); }
  static int received(const std::string& device) {
    const std::string packets = fact(device, "statistics/rx_packets");
    return packets.empty() ? -1 : std::stoi(packets);
  }
  static std::string taps() {
    return run({"/sbin/ip", "-o", "link", "show", "type", "macvtap"}).out;
  }
  // Does it while the daemon stands still, so that it hears of all at once.
  template <class Action>
  void unheard(Action action) {
    Vm::fakes::signalProcess(world.daemon(), SIGSTOP);
    action();
    Vm::fakes::signalProcess(world.daemon(), SIGCONT);
  }
};

TEST_F(DaemonCards, StayWithTheirVmWhenAnotherThatHadTheirDevicesNameIsDisabled) {
  passTheNameOn();
  world.ctl({"disable", "first", "--wait"});
  expectSecondIsAsItWas();
}

TEST_F(DaemonCards, StayWithTheirVmWhenAnotherThatHadTheirDevicesNameIsRemoved) {
  passTheNameOn();
  world.ctl({"remove", "first", "--force", "--wait"});
  expectSecondIsAsItWas();
}

TEST_F(DaemonCards, StayWithTheirVmWhenAnotherThatHadTheirDevicesNameIsRestarted) {
  passTheNameOn();
  world.ctl({"restart", "first"});
  ASSERT_TRUE(waitUntil([] { return asked("first", "cont") == 2; }));
  expectSecondIsAsItWas();
}

TEST_F(DaemonCards, StayWithTheirVmThoughSomebodyDeletedTheOthersDeviceOfThatName) {
  startWithFirst();
  runVmOn("second", secondMac, "Ethernet2");
  unheard([] {
    ip("link del macvtap0");
    ip("link del Ethernet2");
    addPort("Ethernet2");
  });
  ASSERT_TRUE(waitUntil([] { return asked("second", "set_link") == 3; }));
  ASSERT_EQ(macOf("macvtap0"), secondMac);
  world.ctl({"disable", "first", "--wait"});
  expectSecondIsAsItWas(1);
}

// The daemon hears of the disabling and of the devices at once.
TEST_F(DaemonCards, LeaveAStrangersDeviceAloneThatTookTheNameUnheard) {
  startWithFirst();
  unheard([&] {
    ip("link del Ethernet1");
    ip("link add link Ethernet2 name macvtap0 address 52:54:00:99:99:99 type macvtap mode bridge");
    world.ctl({"disable", "first"});
  });
  ASSERT_TRUE(waitUntil([&] { return isOff("first"); }));
  EXPECT_EQ(macOf("macvtap0"), "52:54:00:99:99:99");
}

TEST_F(DaemonCards, LeaveAStrangersDeviceAloneWhenTheInterfaceOfTheNameIsRenamed) {
  startWithFirst();
  unheard([] {
    ip("link del macvtap0");
    ip("link add link Ethernet2 name macvtap0 address 52:54:00:99:99:99 type macvtap mode bridge");
    ip("link set Ethernet1 down");
    ip("link set Ethernet1 name Ethernet9");
  });
  ASSERT_TRUE(waitUntil([] { return asked("first", "netdev_del") == 1; }));
  EXPECT_EQ(macOf("macvtap0"), "52:54:00:99:99:99");
  world.ctl({"disable", "first", "--wait"});
  EXPECT_EQ(macOf("macvtap0"), "52:54:00:99:99:99");
}

// Cards that are cut off.

TEST_F(DaemonCards, AreAttachedAnewWhenSomebodyDeletesTheirDevice) {
  startWithFirst();
  runVmOn("second", secondMac, "Ethernet2");
  settle("first");
  ip("link del macvtap0");
  EXPECT_TRUE(waitUntil([] { return asked("first", "netdev_add") == 2; }, 5)) << world.log();
  EXPECT_TRUE(waitUntil([] { return asked("first", "set_link") == 3; }));
  EXPECT_EQ(macOf("macvtap0"), firstMac);
  EXPECT_THAT(taps(), HasSubstr("macvtap0@Ethernet1"));
  EXPECT_EQ(asked("second", "netdev_del"), 0);
}

TEST_F(DaemonCards, AreAttachedAnewWhenSomebodySwitchesTheirDeviceOff) {
  startWithFirst();
  ip("link set macvtap0 down");
  EXPECT_TRUE(waitUntil([] { return asked("first", "netdev_add") == 2; }, 5)) << world.log();
  EXPECT_THAT(taps(), HasSubstr("macvtap0@Ethernet1: <BROADCAST,MULTICAST,UP"));
}

TEST_F(DaemonCards, ThatCannotBeAttachedAreTheirVmsProblemUntilTheyAre) {
  startWithFirst();
  unheard([] {
    ip("link del macvtap0");
    ip("link add link Ethernet1 name lan0 address 52:54:00:12:34:01 type macvtap mode bridge");
    ip("link set lan0 up");
  });
  EXPECT_TRUE(waitUntil([&] { return world.hasRow("vmProblem", "first", "cannot be"); }, 10));
  EXPECT_THAT(world.ctl({"show", "first"}),
              HasSubstr("card 52:54:00:12:34:01 cannot be attached to Ethernet1: the device lan0 "
                        "there has its address"));
  ip("link del lan0");
  EXPECT_TRUE(waitUntil([] { return macOf("macvtap0") == firstMac; })) << world.log();
  EXPECT_TRUE(waitUntil([&] { return world.row("vmProblem", "first").empty(); }));
}

// What a bad moment has left: the first device could not be made.
TEST_F(DaemonCards, AreAttachedOnceTheyCanBe) {
  addPort("Ethernet1");
  ip("link add link Ethernet1 name lan0 address 52:54:00:12:34:01 type macvtap mode bridge");
  ip("link set lan0 up");
  world.start();
  world.addVm("first",
              {"--nic", std::string("model=e1000,intf=Ethernet1,mac=") + firstMac, "--enabled"});
  ASSERT_TRUE(waitUntil([] { return asked("first", "cont") == 1; }));
  EXPECT_EQ(asked("first", "netdev_add"), 0);
  EXPECT_TRUE(waitUntil([&] { return world.hasRow("vmProblem", "first", "cannot be"); }, 10));
  ip("link del lan0");
  EXPECT_TRUE(waitUntil([] { return asked("first", "netdev_add") == 1; })) << world.log();
}

}  // namespace
}  // namespace host::fakes
