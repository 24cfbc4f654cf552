// All ways in which a guest ends but one, by each road on which an operator is told of it. That at
// its limit of memory needs control groups of version 2: LimitTest.cpp.
#include <gmock/gmock.h>
#include <sys/mount.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "tests/system/GuestFixture.h"
#include "tests/system/PrivateMounts.h"
#include "tests/system/ToldEnd.h"

namespace host::fakes {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* bootIdFile = "/proc/sys/kernel/random/boot_id";

class GuestEnd : public GuestFixture {
 protected:
  ~GuestEnd() override {
    while (umount2(bootIdFile, MNT_DETACH) == 0) {
    }
  }
  // The machine is booted: whatever runs is gone, and all that was in memory.
  void boot(const std::string& id) {
    for (const pid_t process : world.guests()) Vm::fakes::signalProcess(process, SIGKILL);
    ASSERT_TRUE(waitUntil([&] { return world.guests().empty(); }));
    fs::remove_all(world.runDir);
    const std::string file = "/var/run/boot-" + id;
    std::ofstream(file) << id << "\n";
    ASSERT_EQ(mount(file.c_str(), bootIdFile, nullptr, MS_BIND, nullptr), 0);
  }
  // Whom the log of changes has for the author of ours.
  std::string me() const {
    const std::string events = world.ctl({"events", "-o", "json"});
    const std::string mark = R"("kind":"config")";
    const size_t by = events.find(R"("by":")", events.find(mark)) + 6;
    return events.substr(by, events.find('"', by) - by);
  }
  void begin() { start({"--keep-history"}); }
  // Does that to a guest that runs, and waits for its end.
  void walk(const std::string& vm, const std::function<void()>& act, ToldEnd end) {
    end.from = timeOfDay();
    act();
    ASSERT_TRUE(waitUntil(
        [&] {
          return world.hasRow("vmProcess", vm, R"("process":"none")") &&
                 world.hasRow("vmProcess", vm, "\"endCause\":\"" + end.cause + "\"");
        },
        40))
        << told(vm);
    end.to = timeOfDay();
    EXPECT_EQ(wrongIn(world, vm, end), "") << vm;
    ends_[vm] = end;
  }
  void signalQemu(const std::string& vm, int signal) const {
    ASSERT_THAT(world.qemus(vm), testing::SizeIs(1));
    kill(world.qemus(vm).front(), signal);
  }
  void killShim(const std::string& vm) const {
    ASSERT_THAT(world.guests(vm), testing::SizeIs(1));
    kill(world.guests(vm).front(), SIGKILL);
  }
  void expectAllAsTold() {
    for (const auto& each : ends_) {
      std::string wrong;
      const auto isRight = [&] {
        return (wrong = wrongIn(world, each.first, each.second)).empty();
      };
      EXPECT_TRUE(waitUntil(isRight)) << each.first << ": " << wrong << told(each.first);
    }
  }

  std::map<std::string, ToldEnd> ends_;  // by VM
};

// Looks like a qcow2 image, and is none.
std::string damagedImage() {
  std::string path = "/var/run/damaged.qcow2";
  std::string head("QFI\xfb\0\0\0\3", 8);
  head.resize(65'536, '\0');
  std::ofstream(path, std::ios::binary) << head;
  return path;
}

TEST_F(GuestEnd, IsToldWithItsCauseItsTimeAndItsAuthorAlsoAfterTheNextBoot) {
  boot("a");
  begin();
  for (const char* vm :
       {"shutdown", "asked", "forced", "off", "signal", "killed", "crashed", "lost"})
    bootVm(vm);

  const std::string me = this->me();
  walk("shutdown", [&] { world.type("shutdown", powerOff); },
       {"guest-shutdown", "guest", "the guest shut itself down"});
  walk("asked",
       [&] {
         world.ctl({"stop", "asked", "--timeout", "600"});
         ASSERT_TRUE(world.shimSaid("asked", "presses the guest's power button"));
         world.type("asked", powerOff);
       },
       {"asked", me, "the guest was asked to shut down by " + me + ", and did in "});
  walk("forced",
       [&] {
         world.ctl({"stop", "forced"});
       },
       {"asked-forced", me, "the guest was asked to shut down by " + me + ", did not for "});
  walk("off",
       [&] {
         world.ctl({"stop", "off", "--now"});
       },
       {"powered-off", me, "the guest was switched off by " + me});
  walk("signal", [&] { signalQemu("signal", SIGTERM); },
       {"signal", "stranger", "terminating on signal 15"});
  walk("killed", [&] { signalQemu("killed", SIGKILL); },
       {"killed", "unknown", "QEMU was killed by signal 9; who sent it cannot be known"});
  walk("crashed", [&] { signalQemu("crashed", SIGSEGV); },
       {"qemu-crashed", "QEMU", "QEMU crashed with signal 11"});
  walk("lost", [&] { killShim("lost"); },
       {"shim-lost", "unknown", "its shim was killed, and QEMU ended with it"});
  walk("failed",
       [&] {
         const std::string image = damagedImage();
         ASSERT_EQ(addVm("failed", {"--format", "qcow2"}, image).status, 0);
       },
       {"start-failed", "QEMU", "QEMU did not start: "});
  world.ctl({"stop", "failed"});
  for (const char* vm : {"shutdown", "signal", "killed", "crashed", "lost"})
    world.ctl({"stop", vm});

  // The machine is shut down in order.
  bootVm("down");
  const uint64_t downFrom = timeOfDay();
  ASSERT_EQ(world.end(SIGTERM), 0);
  ASSERT_EQ(run({VMAGENTD, "--end-guests", "--state-dir", world.stateDir, "--run-dir", world.runDir,
                 "--stop-timeout", "1"})
                .status,
            0);
  ends_["down"] = {"host-down", "host",
                   "the switch was shut down: the guest was asked to shut down, did not for ",
                   downFrom, timeOfDay()};
  boot("b");
  begin();
  expectAllAsTold();

  // Its power fails.
  bootVm("power");
  ASSERT_EQ(world.end(SIGTERM), 0);
  boot("c");
  begin();
  ends_["power"] = {"host-reboot", "host", "the switch was restarted without notice", 1,
                    timeOfDay()};
  ends_["down"] = ends_["power"];  // it was started again by then
  expectAllAsTold();

  // A daemon that begins tells of none of it anew.
  const std::string before = world.vmctl({"history", "power"}).out;
  world.end(SIGKILL);
  begin();
  EXPECT_TRUE(says("power", "power is wanted running and is running"));
  expectAllAsTold();
  EXPECT_EQ(world.vmctl({"history", "power"}).out.find(before), 0U) << before;
}

TEST_F(GuestEnd, OfAGuestThatWasEndedWithAllIsNotTheMachinesUnlessThatWentDown) {
  start();
  bootVm("web1");
  ASSERT_EQ(world.end(SIGTERM), 0);
  const uint64_t from = timeOfDay();
  ASSERT_EQ(run({VMAGENTD, "--end-guests", "--state-dir", world.stateDir, "--run-dir", world.runDir,
                 "--stop-timeout", "1"})
                .status,
            0);
  const uint64_t to = timeOfDay();
  start();
  ASSERT_TRUE(says("web1", "is running"));
  EXPECT_EQ(wrongIn(world, "web1",
                    {"asked-forced", "vmagentd --end-guests",
                     "the guest was asked to shut down by vmagentd --end-guests, did not for ",
                     from, to}),
            "");
}

}  // namespace
}  // namespace host::fakes
