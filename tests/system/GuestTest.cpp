// Real guests: vmagentd, vmctl and the shim on a real QEMU, with a guest of one sector.
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "runtime/base/Descriptor.h"
#include "tests/system/GuestFixture.h"
#include "tests/system/PrivateMounts.h"

namespace host::fakes {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

const std::vector<std::string> aCard = {"--nic",
                                        "model=e1000,mac=52:54:00:12:34:56,intf=Ethernet1"};

bool hasMacvtap() {
  return waitUntil([] { return std::filesystem::exists("/sys/class/net/macvtap0"); });
}

// Another network namespace, whose devices are counted as ours are: most of the numbers that a
// macvtap of ours may have are taken by one of its own.
class OtherNetwork {
 public:
  OtherNetwork() {
    ip("netns add other");
    ip("-n other link add low type veth peer name peer");
    for (int i = 0; i < 8; ++i)
      ip("-n other link add link low name macvtap" + std::to_string(i) + " type macvtap");
  }
  OtherNetwork(const OtherNetwork&) = delete;
  ~OtherNetwork() { ip("netns del other"); }
};

// "MAJOR:MINOR" of the macvtap's tap.
std::string tapOf(const std::string& macvtap) {
  const std::string device = "/sys/class/net/" + macvtap;
  std::string index;
  std::string tap;
  std::ifstream(device + "/ifindex") >> index;
  std::ifstream(device + "/tap" + index + "/dev") >> tap;
  return tap;
}

// What whoever listens there says first.
std::string saidAt(const void* address, socklen_t size) {
  const auto* const to = static_cast<const sockaddr*>(address);
  const rt::Descriptor viewer(socket(to->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (connect(viewer.number(), to, size) != 0) return std::strerror(errno);
  char said[64];
  const ssize_t count = read(viewer.number(), said, sizeof said);
  return {said, static_cast<size_t>(std::max<ssize_t>(count, 0))};
}

class Guest : public GuestFixture {
 protected:
  std::vector<pid_t> qemus() const { return world.qemus("web1"); }
  // The same of the taps that QEMU has open.
  std::vector<std::string> openTaps() const {
    std::vector<std::string> found;
    for (const pid_t qemu : qemus())
      for (const auto& file :
           std::filesystem::directory_iterator("/proc/" + std::to_string(qemu) + "/fd")) {
        struct stat device {};
        std::error_code gone;
        // Of another mount namespace's file the path may begin anywhere.
        if (read_symlink(file.path(), gone).string().find("/dev/tap") != std::string::npos &&
            stat(file.path().c_str(), &device) == 0)
          found.push_back(std::to_string(major(device.st_rdev)) + ":" +
                          std::to_string(minor(device.st_rdev)));
      }
    return found;
  }
};

TEST_F(Guest, BootsIsShownRunningAndEndsWhenItIsDisabled) {
  start();
  bootVm("web1");
  world.ctl({"wait", "web1", "--for", "state=Running", "--timeout", "20"});
  EXPECT_THAT(world.row("vmStatus", "web1"), HasSubstr(R"("consolePtyPath":"pty:/dev/pts/)"));
  EXPECT_THAT(qemus(), SizeIs(1));
  world.ctl({"disable", "web1", "--wait"});
  EXPECT_THAT(qemus(), IsEmpty());
  EXPECT_FALSE(std::filesystem::exists("/var/run/web1.monitor"));
}

TEST_F(Guest, ThatIsKilledIsShownStoppedWithTheCause) {
  start();
  bootVm("web1");
  ASSERT_THAT(qemus(), SizeIs(1));
  Vm::fakes::signalProcess(qemus().at(0), SIGKILL);
  ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmStatus", "web1", R"("state":"Stopped")"); }));
  EXPECT_TRUE(waitUntil([&] { return world.hasRow("vmProblem", "web1", R"("source":"qemu")"); }))
      << world.row("vmProblem", "web1");
  world.ctl({"restart", "web1"});
  EXPECT_TRUE(waitUntil([&] { return qemus().size() == 1; }));
  EXPECT_TRUE(waitUntil([&] { return world.row("vmProblem", "web1").empty(); }));
}

TEST_F(Guest, HasItsCardOnItsInterface) {
  addPort("Ethernet1");
  start();
  bootVm("web1", aCard);
  EXPECT_TRUE(hasMacvtap());
  ip("link del Ethernet1");
  EXPECT_TRUE(waitUntil([] { return !std::filesystem::exists("/sys/class/net/macvtap0"); }));
  addPort("Ethernet1");
  EXPECT_TRUE(hasMacvtap());
  EXPECT_THAT(qemus(), SizeIs(1)) << "it went on";
}

TEST_F(Guest, HasItsCardOnItsInterfaceThoughAnotherNetworkHasATapOfTheSameNumber) {
  const OtherNetwork other;
  addPort("Ethernet1");
  start();
  bootVm("web1", aCard);
  ASSERT_TRUE(waitUntil([&] { return openTaps().size() == 1; })) << world.log();
  EXPECT_THAT(openTaps(), ElementsAre(tapOf("macvtap0")));
}

TEST_F(Guest, BootsFromADiskOrACdAsItsImageIs) {
  start();
  bootVm("web1");
  bootVm("web2", {}, BOOTSECTOR_CD);
  EXPECT_THAT(world.commandLine("web1"), HasSubstr("ide-hd"));
  EXPECT_THAT(world.commandLine("web2"), HasSubstr("ide-cd"));
}

// Guests outlive the daemon.

TEST_F(Guest, GoesOnWhenTheDaemonIsKilledAndIsTakenUpByTheNext) {
  start();
  bootVm("web1");
  const auto before = qemus();
  ASSERT_THAT(before, SizeIs(1));
  world.end(SIGKILL);
  EXPECT_EQ(qemus(), before);
  start();
  world.ctl({"wait", "web1", "--for", "state=Running", "--timeout", "20"});
  EXPECT_EQ(qemus(), before);
  world.ctl({"disable", "web1", "--wait"});
  EXPECT_THAT(qemus(), IsEmpty());
}

TEST_F(Guest, KeepsItsCardFromOneDaemonToTheNext) {
  addPort("Ethernet1");
  start();
  bootVm("web1", aCard);
  const auto before = qemus();
  world.end(SIGTERM);
  start();
  EXPECT_TRUE(
      waitUntil([&] { return world.hasRow("vmProcess", "web1", R"("process":"running")"); }));
  EXPECT_TRUE(hasMacvtap());
  EXPECT_EQ(qemus(), before);
  const auto taps = macvtaps();
  EXPECT_EQ(std::count(taps.begin(), taps.end(), '\n'), 1) << taps;
}

TEST_F(Guest, ThatWasDisabledWhileNoDaemonRanIsEndedByTheNext) {
  start();
  bootVm("web1");
  world.end(SIGTERM);
  world.ctl({"disable", "web1"});
  EXPECT_THAT(qemus(), SizeIs(1));
  start();
  EXPECT_TRUE(waitUntil([&] { return qemus().empty(); }));
}

TEST_F(Guest, ThatIsRemovedIsShownUntilItHasEnded) {
  start({"--stop-timeout", "60"});
  runVm("web1");
  EXPECT_EQ(world.vmctl({"remove", "web1", "--force"}).err,
            "web1: removed; its guest is being ended\n");
  ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmProcess", "web1", "ending"); }));
  EXPECT_THAT(world.ctl({"list"}),
              HasSubstr("web1  gone    stopping  0s     it was removed  is switched off in "));
  EXPECT_THAT(world.ctl({"show", "web1"}), HasSubstr("Process:  ending, pid "));
  EXPECT_THAT(qemus(), SizeIs(1));
  world.type("web1", powerOff);
  EXPECT_TRUE(waitUntil([&] { return world.ctl({"list"}).empty(); }));
  EXPECT_THAT(qemus(), IsEmpty());
  EXPECT_EQ(world.vmctl({"show", "web1"}).status, 3);
}

TEST_F(Guest, ThatWasRemovedWhileNoDaemonRanIsEndedByTheNext) {
  start();
  bootVm("web1");
  world.end(SIGKILL);
  world.ctl({"remove", "web1", "--force"});
  start();
  EXPECT_TRUE(waitUntil([&] { return qemus().empty(); }));
}

TEST_F(Guest, WhoseRestartWasAskedForWhileNoDaemonRanIsRestarted) {
  start();
  bootVm("web1");
  const auto before = qemus();
  world.end(SIGKILL);
  world.ctl({"restart", "web1"});
  start();
  EXPECT_TRUE(waitUntil([&] { return qemus().size() == 1 && qemus() != before; }));
}

TEST_F(Guest, HasItsScreenOnASocketForAsLongAsItRuns) {
  start();
  bootVm("web1", {"--vnc-port", "5901"});
  bootVm("web2");
  const std::string guests = world.runDir + "/vm/";
  EXPECT_TRUE(std::filesystem::is_socket(guests + "web1/vnc.sock"));
  EXPECT_FALSE(std::filesystem::exists(guests + "web2/vnc.sock"));
  world.ctl({"disable", "web1", "--wait"});
  expectNothingLeftOf("web1");
}

TEST_F(Guest, ThatIsKilledLeavesNoScreen) {
  start();
  bootVm("web1", {"--vnc-port", "5901"});
  Vm::fakes::signalProcess(world.guests("web1").at(0), SIGKILL);
  ASSERT_TRUE(becomes("web1", "Stopped")) << world.log();
  EXPECT_TRUE(
      waitUntil([&] { return !std::filesystem::exists(world.runDir + "/vm/web1/vnc.sock"); }));
}

TEST_F(Guest, HasItsScreenAtTheAddressThatIsNamed) {
  start({"--vnc-listen", "127.0.0.1"});
  bootVm("web1", {"--vnc-port", "5901"});
  EXPECT_FALSE(std::filesystem::exists(world.runDir + "/vm/web1/vnc.sock"));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(5901);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(saidAt(&address, sizeof address), "RFB 003.008\n");
  EXPECT_THAT(world.ctl({"show", "web1"}), HasSubstr("Display:  VNC, port 5901\n"));
}

TEST_F(Guest, HasItsScreenAtAnAddressOfIpv6InBrackets) {
  start({"--vnc-listen", "[::1]"});
  bootVm("web1", {"--vnc-port", "5901"});
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  address.sin6_port = htons(5901);
  address.sin6_addr = in6addr_loopback;
  EXPECT_EQ(saidAt(&address, sizeof address), "RFB 003.008\n");
}

}  // namespace
}  // namespace host::fakes
