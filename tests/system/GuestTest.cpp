// Real guests: vmagentd, vmctl and the shim on a real QEMU, with a guest of one sector.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

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
  void start() { world.start({"--shim", VMAGENT_SHIM, "--accel", "tcg"}); }
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
  // The processes whose program is the real QEMU. (The shim has the name of the agent's.)
  static std::vector<pid_t> qemus() {
    std::vector<pid_t> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
      std::error_code error;
      const auto program = std::filesystem::read_symlink(entry.path() / "exe", error).string();
      struct stat own {};
      struct stat its {};
      if (program.find("qemu") == std::string::npos || stat(machinesQemu, &own) != 0 ||
          stat((entry.path() / "exe").c_str(), &its) != 0)
        continue;
      std::ifstream file(entry.path() / "cmdline");
      const std::string words{std::istreambuf_iterator<char>(file), {}};
      if (words.find("/var/run/web") != std::string::npos &&
          words.find("-sandbox") != std::string::npos)
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
