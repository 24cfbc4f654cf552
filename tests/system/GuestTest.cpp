// Real guests: vmagentd, vmctl and the shim on a real QEMU, with a guest of one sector.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "tests/system/DaemonWorld.h"
#include "tests/system/PrivateMounts.h"

namespace host::fakes {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* machinesQemu = "/var/run/.usr-bin/qemu-system-x86_64";

class Guest : public testing::Test {
 protected:
  // The guest of one sector takes no notice of its power button.
  static std::vector<std::string> options() {
    return {"--shim", VMAGENT_SHIM, "--accel", "tcg", "--stop-timeout", "1"};
  }
  void start() { world.start(options()); }
  // A VM on a copy of the guest, for it is opened for writing.
  void addVm(const std::string& name, const std::vector<std::string>& more = {}) const {
    const std::string disk = "/var/run/" + name + ".img";
    std::filesystem::copy_file(BOOTSECTOR, disk);
    std::vector<std::string> words = {"add", name, "--disk", disk, "--memory", "32", "--enabled"};
    words.insert(words.end(), more.begin(), more.end());
    world.ctl(words);
  }
  void runVm(const std::string& name, const std::vector<std::string>& more = {}) const {
    addVm(name, more);
    ASSERT_TRUE(waitUntil([&] { return console(name).find("READY") != std::string::npos; }, 40))
        << world.log();
  }
  std::string console(const std::string& name) const {
    std::ifstream file(world.runDir + "/vm/" + name + "/console.log");
    return {std::istreambuf_iterator<char>(file), {}};
  }
  // The processes of our network whose program is the real QEMU. (The shim's is another.)
  static std::vector<pid_t> qemus() {
    namespace fs = std::filesystem;
    std::error_code error;
    const auto own = fs::read_symlink("/proc/self/ns/net", error);
    struct stat qemu {};
    stat(machinesQemu, &qemu);
    std::vector<pid_t> found;
    for (const auto& entry : fs::directory_iterator("/proc")) {
      struct stat program {};
      // QEMU is a copy of the machine's.
      if (fs::read_symlink(entry.path() / "ns/net", error) != own || error ||
          stat((entry.path() / "exe").c_str(), &program) != 0 || program.st_size != qemu.st_size)
        continue;
      found.push_back(std::stoi(entry.path().filename().string()));
    }
    return found;
  }

  DaemonWorld world;
};

TEST_F(Guest, BootsIsShownRunningAndEndsWhenItIsDisabled) {
  start();
  runVm("web1");
  world.ctl({"wait", "web1", "--for", "state=Running", "--timeout", "20"});
  EXPECT_THAT(world.row("vmStatus", "web1"), HasSubstr(R"("consolePtyPath":"pty:/dev/pts/)"));
  EXPECT_THAT(qemus(), SizeIs(1));
  world.ctl({"disable", "web1", "--wait"});
  EXPECT_THAT(qemus(), IsEmpty());
  EXPECT_FALSE(std::filesystem::exists("/var/run/web1.monitor"));
}

TEST_F(Guest, ThatIsKilledIsShownStoppedWithTheCause) {
  start();
  runVm("web1");
  ASSERT_THAT(qemus(), SizeIs(1));
  kill(qemus().at(0), SIGKILL);
  ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmStatus", "web1", R"("state":"Stopped")"); }));
  EXPECT_TRUE(waitUntil([&] { return world.hasRow("vmProblem", "web1", R"("source":"qemu")"); }))
      << world.row("vmProblem", "web1");
  world.ctl({"restart", "web1"});
  EXPECT_TRUE(waitUntil([] { return qemus().size() == 1; }));
  EXPECT_TRUE(waitUntil([&] { return world.row("vmProblem", "web1").empty(); }));
}

TEST_F(Guest, WhoseQemuCannotStartIsExplainedInQemusWords) {
  start();
  runVm("web1");
  world.ctl({"add", "web2", "--disk", "/var/run/web1.img", "--memory", "32", "--enabled"});
  EXPECT_TRUE(
      waitUntil([&] { return world.hasRow("vmProblem", "web2", R"("source":"qemu")"); }, 40))
      << world.row("vmProblem", "web2");
  EXPECT_THAT(world.row("vmProblem", "web2"), HasSubstr("using the image"));
  EXPECT_THAT(qemus(), SizeIs(1));
}

TEST_F(Guest, HasItsCardOnItsInterface) {
  ip("link add Ethernet1 type veth peer name wire");
  ip("link set Ethernet1 up");
  start();
  runVm("web1", {"--nic", "model=e1000,mac=52:54:00:12:34:56,intf=Ethernet1"});
  EXPECT_TRUE(waitUntil([] { return std::filesystem::exists("/sys/class/net/macvtap0"); }));
  ip("link del Ethernet1");
  EXPECT_TRUE(waitUntil([] { return !std::filesystem::exists("/sys/class/net/macvtap0"); }));
  ip("link add Ethernet1 type veth peer name wire");
  ip("link set Ethernet1 up");
  EXPECT_TRUE(waitUntil([] { return std::filesystem::exists("/sys/class/net/macvtap0"); }));
  EXPECT_THAT(qemus(), SizeIs(1)) << "it went on";
}

TEST_F(Guest, RunsBesideOthers) {
  start();
  for (const char* name : {"web1", "web2", "web3"}) addVm(name);
  EXPECT_TRUE(waitUntil([] { return qemus().size() == 3; }, 40)) << world.log();
  for (const char* name : {"web1", "web2", "web3"})
    EXPECT_TRUE(waitUntil([&] { return console(name).find("READY") != std::string::npos; }, 40));
}

// Guests outlive the daemon.

TEST_F(Guest, GoesOnWhenTheDaemonIsKilledAndIsTakenUpByTheNext) {
  start();
  runVm("web1");
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
  ip("link add Ethernet1 type veth peer name wire");
  ip("link set Ethernet1 up");
  start();
  runVm("web1", {"--nic", "model=e1000,mac=52:54:00:12:34:56,intf=Ethernet1"});
  const auto before = qemus();
  world.end(SIGTERM);
  start();
  EXPECT_TRUE(waitUntil([&] { return world.hasRow("vmProcess", "web1", "running"); }));
  EXPECT_TRUE(waitUntil([] { return std::filesystem::exists("/sys/class/net/macvtap0"); }));
  EXPECT_EQ(qemus(), before);
  const auto taps = run({"/sbin/ip", "-o", "link", "show", "type", "macvtap"}).out;
  EXPECT_EQ(std::count(taps.begin(), taps.end(), '\n'), 1) << taps;
}

TEST_F(Guest, ThatWasDisabledWhileNoDaemonRanIsEndedByTheNext) {
  start();
  runVm("web1");
  world.end(SIGTERM);
  world.ctl({"disable", "web1"});
  EXPECT_THAT(qemus(), SizeIs(1));
  start();
  EXPECT_TRUE(waitUntil([] { return qemus().empty(); }));
}

TEST_F(Guest, ThatWasRemovedWhileNoDaemonRanIsEndedByTheNext) {
  start();
  runVm("web1");
  world.end(SIGKILL);
  world.ctl({"remove", "web1", "--force"});
  start();
  EXPECT_TRUE(waitUntil([] { return qemus().empty(); }));
}

TEST_F(Guest, WhoseRestartWasAskedForWhileNoDaemonRanIsRestarted) {
  start();
  runVm("web1");
  const auto before = qemus();
  world.end(SIGKILL);
  world.ctl({"restart", "web1"});
  start();
  EXPECT_TRUE(waitUntil([&] { return qemus().size() == 1 && qemus() != before; }));
}

TEST_F(Guest, IsOneAtMostHoweverOftenTheDaemonIsKilled) {
  ip("link add Ethernet1 type veth peer name wire");
  ip("link set Ethernet1 up");
  start();
  addVm("web1", {"--nic", "model=e1000,mac=52:54:00:12:34:56,intf=Ethernet1"});
  std::mt19937 random{1};  // NOLINT(cert-msc51-cpp,cert-msc32-c): the same moments every time
  bool on = true;
  for (int round = 0; round < 50; ++round) {
    switch (random() % 4) {
      case 0:
        on = !on;
        world.ctl({on ? "enable" : "disable", "web1"});
        break;
      case 1:
        ip("link del Ethernet1");
        ip("link add Ethernet1 type veth peer name wire");
        ip("link set Ethernet1 up");
        break;
      case 2:
        if (on) world.ctl({"restart", "web1"});
        break;
      default:
        break;
    }
    waitUntil([] { return false; }, static_cast<double>(random() % 400) / 1000);
    ASSERT_LE(qemus().size(), 1U) << "in round " << round;
    ASSERT_EQ(world.end(SIGKILL), -SIGKILL);
    world.start(options());
  }
  world.vmctl({"enable", "web1"});
  EXPECT_TRUE(waitUntil(
      [&] { return qemus().size() == 1 && world.hasRow("vmProcess", "web1", "running"); }, 40))
      << world.row("vmProcess", "web1") << world.row("vmProblem", "web1") << world.log();
  EXPECT_TRUE(waitUntil([] { return std::filesystem::exists("/sys/class/net/macvtap0"); }));
  world.ctl({"disable", "web1", "--wait"});
  EXPECT_THAT(qemus(), IsEmpty());
  EXPECT_EQ(run({"/sbin/ip", "-o", "link", "show", "type", "macvtap"}).out, "");
}

}  // namespace
}  // namespace host::fakes

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  if (testing::GTEST_FLAG(list_tests)) return RUN_ALL_TESTS();
  if (access("/usr/bin/qemu-system-x86_64", X_OK) != 0)
    return Vm::fakes::leaveOut(basename(argv[0]), "QEMU");
  if (const auto needs = host::fakes::enterDaemonWorld(host::fakes::machinesQemu); !needs.empty())
    return Vm::fakes::leaveOut(basename(argv[0]), needs);
  return RUN_ALL_TESTS();
}
