// What the kernel does with guests that take more than they may. Needs control groups of version 2
// that nobody else has divided, so this is run on a machine of its own.
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "tests/system/DaemonFixture.h"
#include "tests/system/PrivateMounts.h"
#include "tests/system/ToldEnd.h"

namespace host::fakes {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* tree = "/sys/fs/cgroup";
constexpr const char* guests = "/sys/fs/cgroup/vmagent/guests";
constexpr const char* aside = "/usr/bin/qemu-aside";

// Takes all that it is asked for well, as QEMU does over its monitor.
constexpr const char* answers =
    R"(printf '{"QMP": {"version": {"qemu": {"micro": 22, "minor": 2, "major": 7}, )"
    R"("package": "none"}, "capabilities": []}}\r\n' >&3
while read -r line <&3; do
  id=${line##*\"id\":}
  printf '{"return": {}, "id":%s}\r\n' "${id%%[,\}]*}" >&3
done)";

// A guest of 32 MiB, emulated, may have 173 with its QEMU.
class Limited : public DaemonFixture {
 protected:
  void SetUp() override {
    ASSERT_EQ(mount("cgroup2", tree, "cgroup2", 0, nullptr), 0) << std::strerror(errno);
    fs::rename(Vm::fakes::qemuPath, aside);
  }
  void TearDown() override {
    for (const char* vm : {"web1", "web2"}) world.vmctl({"remove", vm, "--force", "--wait"});
    fs::rename(aside, Vm::fakes::qemuPath);
    umount2(tree, MNT_DETACH);
  }

  // QEMU does that, in its box.
  void qemuDoes(const std::string& what) {
    std::ofstream(Vm::fakes::qemuPath) << "#!/bin/sh\n" << what << "\n";
    fs::permissions(Vm::fakes::qemuPath, fs::perms(0755));
  }
  void start(const std::string& what, std::vector<std::string> more = {}) {
    qemuDoes(what);
    options = {"--shim",         VMAGENT_SHIM, "--accel",      "tcg",
               "--stop-timeout", "0",          "--qemu-reads", Vm::fakes::programs};
    options.insert(options.end(), more.begin(), more.end());
    world.start(options);
  }
  void addVm(const std::string& name) const {
    world.ctl({"add", name, "--disk", world.image, "--memory", "32", "--enabled"});
  }
  static std::string group(const std::string& vm) {
    return std::string(guests) + "/vm-" + vm + ".173";
  }
  static std::string in(const std::string& vm, const char* file) {
    return contentOf(group(vm) + "/" + file);
  }
  testing::AssertionResult lives(const std::string& vm) const {
    if (waitUntil([&] { return in(vm, "cgroup.events").starts_with("populated 1"); }))
      return testing::AssertionSuccess();
    return testing::AssertionFailure()
           << world.row("daemon", "vmagentd") << world.row("vmProblem", vm) << world.log();
  }
  static bool isGone(const std::string& vm) {
    return waitUntil([&] { return !fs::exists(group(vm)); });
  }

  std::vector<std::string> options;
};

TEST_F(Limited, IsAGuestFromItsFirstInstructionOn) {
  start(answers);
  addVm("web1");
  ASSERT_TRUE(lives("web1"));
  EXPECT_EQ(in("web1", "memory.max"), "181403648\n");
  EXPECT_EQ(in("web1", "memory.oom.group"), "1\n");
  EXPECT_EQ(in("web1", "pids.max"), "512\n");
  EXPECT_EQ(in("web1", "cpu.weight"), "100\n");
  const std::string qemu = in("web1", "cgroup.procs");
  EXPECT_EQ(contentOf("/proc/" + qemu.substr(0, qemu.find('\n')) + "/cgroup"),
            "0::/vmagent/guests/vm-web1.173\n");
  const std::string shim = std::to_string(world.guests("web1").at(0));
  EXPECT_EQ(contentOf("/proc/" + shim + "/cgroup"), "0::/vmagent/daemon\n");
  EXPECT_EQ(contentOf("/proc/" + std::to_string(world.daemon()) + "/cgroup"),
            "0::/vmagent/daemon\n");
  const std::string top = world.ctl({"top", "-n", "1", "-o", "json"});
  EXPECT_THAT(top, HasSubstr(R"("maxBytes":181403648,)"));
  EXPECT_THAT(top, testing::ContainsRegex(R"("usedUs":[0-9]+,"throttledUs":[0-9]+,)"));

  world.ctl({"set", "web1", "cpuWeight=50", "cpuMax=0.5", "memoryReserve=27"});
  EXPECT_TRUE(waitUntil([&] { return in("web1", "cpu.weight") == "50\n"; }));
  EXPECT_EQ(in("web1", "cpu.max"), "10000 20000\n");
  EXPECT_EQ(in("web1", "memory.max"), "209715200\n");
  world.ctl({"disable", "web1", "--wait"});
  EXPECT_TRUE(isGone("web1"));
  EXPECT_THAT(world.ctl({"list"}), HasSubstr("stopped"));
}

TEST_F(Limited, GuestThatTakesTooMuchMemoryEndsAloneAndIsSaidToHave) {
  start(
      "sleep 1; text=0123456789012345678901234567890123456789\n"
      "while :; do text=$text$text; done");
  const uint64_t from = timeOfDay();
  addVm("web1");
  ASSERT_TRUE(waitUntil(
      [&] { return world.hasRow("vmProcess", "web1", R"("endCause":"memory-limit")"); }, 60))
      << world.row("vmProcess", "web1") << contentOf(world.runDir + "/vm/web1/shim.log");
  EXPECT_TRUE(world.hasRow("vmProcess", "web1", "ended by the memory limit of 173 MiB"))
      << world.row("vmProcess", "web1");
  EXPECT_THAT(world.ctl({"list"}), HasSubstr("ended by the memory limit of 173 MiB"));
  EXPECT_EQ(wrongIn(world, "web1",
                    {"memory-limit", "kernel", "ended by the memory limit of 173 MiB", from,
                     timeOfDay()}),
            "");
  EXPECT_THAT(contentOf(world.runDir + "/vm/web1/shim.log"), HasSubstr("MiB at most, of 173"));
  EXPECT_EQ(kill(world.daemon(), 0), 0);
  EXPECT_TRUE(isGone("web1"));
}

TEST_F(Limited, GuestThatForksWithoutEndLeavesOthersTheirs) {
  start("while :; do sleep 1000 & done 2>/dev/null");
  addVm("web1");
  ASSERT_TRUE(lives("web1"));
  sleep(3);
  // So many may have been too much memory already, and then it has ended.
  const std::string processes = in("web1", "pids.current");
  EXPECT_TRUE(processes.empty() || std::stoi(processes) <= 512) << processes;
  EXPECT_THAT(world.ctl({"list"}), HasSubstr("web1"));
  world.ctl({"disable", "web1", "--wait"});
  EXPECT_TRUE(isGone("web1")) << "all that it made ends with it: " << in("web1", "cgroup.procs");
}

TEST_F(Limited, StartWaitsForRoomThatAnotherGuestHas) {
  start(answers, {"--guests-memory", "200M"});
  addVm("web1");
  ASSERT_TRUE(lives("web1"));
  addVm("web2");
  ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmProblem", "web2", R"("source":"memory")"); }));
  EXPECT_TRUE(world.hasRow("vmProblem", "web2",
                           "memory: 173 MiB would make 346 of all guests; they may have 200"))
      << world.row("vmProblem", "web2");
  EXPECT_THAT(world.guests("web2"), IsEmpty());
  EXPECT_THAT(world.vmctl({"doctor"}).out, HasSubstr("limits: guests may have 200 MiB"));
  EXPECT_EQ(contentOf(std::string(guests) + "/memory.max"), "209715200\n");
  world.ctl({"disable", "web1", "--wait"});
  EXPECT_TRUE(lives("web2"));
  EXPECT_TRUE(waitUntil([&] { return !world.hasRow("vmProblem", "web2", "memory"); }));
}

TEST_F(Limited, GuestStaysItWhileTheDaemonIsExchanged) {
  start(answers);
  addVm("web1");
  ASSERT_TRUE(lives("web1"));
  const std::string qemu = in("web1", "cgroup.procs");
  EXPECT_EQ(world.end(SIGKILL), -SIGKILL);
  world.start(options);
  EXPECT_TRUE(waitUntil([&] { return world.hasRow("vmProcess", "web1", "running"); }));
  EXPECT_EQ(in("web1", "cgroup.procs"), qemu);
  EXPECT_TRUE(world.hasRow("daemon", "vmagentd", R"("memoryGiven":173)"))
      << world.row("daemon", "vmagentd");
  world.ctl({"set", "web1", "cpuWeight=70"});
  EXPECT_TRUE(waitUntil([&] { return in("web1", "cpu.weight") == "70\n"; }));
  world.ctl({"disable", "web1", "--wait"});
  EXPECT_TRUE(isGone("web1"));
  EXPECT_TRUE(world.hasRow("daemon", "vmagentd", R"("memoryGiven":0)"));
}

}  // namespace
}  // namespace host::fakes
