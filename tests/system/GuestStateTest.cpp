// What an operator is told of how a guest is, and of how it ended, by whatever hand.
#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "tests/system/GuestFixture.h"
#include "tests/system/PrivateMounts.h"

namespace host::fakes {
namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::MatchesRegex;

class GuestState : public GuestFixture {
 protected:
  // How the VM's last run ended, once it has none.
  void expectEnd(const std::string& name, const std::string& cause, const std::string& why,
                 const std::string& author) const {
    ASSERT_TRUE(
        waitUntil([&] { return world.hasRow("vmProcess", name, R"("process":"none")"); }, 20))
        << told(name);
    EXPECT_TRUE(world.hasRow("vmProcess", name, R"("endCause":")" + cause + "\"")) << told(name);
    EXPECT_TRUE(world.hasRow("vmProcess", name, R"("endBy":")" + author + "\"")) << told(name);
    EXPECT_THAT(world.row("vmProcess", name), HasSubstr(why));
  }
  // As vmctl calls who runs it: by their login, where that is known.
  std::string me() const {
    const std::string events = world.ctl({"history", "web1", "-o", "json"});
    const std::string mark = R"("kind":"config")";
    const size_t by = events.find(R"("by":")", events.find(mark)) + 6;
    return events.substr(by, events.find('"', by) - by);
  }
  void killShimOf(const std::string& name) const {
    const auto shims = world.guests(name);
    ASSERT_EQ(shims.size(), 1U);
    kill(shims.front(), SIGKILL);
  }
};

TEST_F(GuestState, IsRunningOnceTheGuestWasLetRun) {
  start();
  bootVm("web1");
  EXPECT_TRUE(says("web1", "web1 is wanted running and is running")) << told("web1");
  EXPECT_EQ(world.vmctl({"why", "web1"}).status, 0);
  EXPECT_TRUE(world.hasRow("vmProcess", "web1",
                           R"("qemuPid":)" + std::to_string(world.qemus("web1").front())));
  EXPECT_THAT(world.ctl({"list"}), testing::ContainsRegex("web1 +running +running +[0-9]+s +- +-"));
}

TEST_F(GuestState, TellsThatAGuestShutItselfDown) {
  start();
  bootVm("web1");
  world.type("web1", powerOff);
  expectEnd("web1", "guest-shutdown", "the guest shut itself down, after ", "guest");
  EXPECT_TRUE(says("web1", "web1 is wanted running, and is stopped")) << told("web1");
  EXPECT_TRUE(says("web1", "To type: vmctl start web1"));
  EXPECT_EQ(world.vmctl({"why", "web1"}).status, 1);
}

TEST_F(GuestState, CountsStartsAndEndsOverItsDaemon) {
  const auto counts = [&](const std::string& line) {
    return waitUntil([&] { return world.ctl({"metrics"}).find(line) != std::string::npos; });
  };
  const std::string starts = "\nvmagent_vm_starts_total{vm=\"web1\"} ";
  const std::string ends = "\nvmagent_vm_ends_total{vm=\"web1\",cause=\"guest-shutdown\"} ";
  start();
  runVm("web1");
  world.type("web1", powerOff);
  ASSERT_TRUE(counts(ends + "1\n")) << world.ctl({"metrics"});
  const size_t before = world.console("web1").size();
  world.ctl({"start", "web1", "--wait"});
  ASSERT_TRUE(world.saysOnConsole("web1", ready, before));
  EXPECT_TRUE(counts(starts + "2\n"));
  world.end(SIGKILL);
  start();
  expectShownRunning("web1");
  world.type("web1", powerOff);
  EXPECT_TRUE(counts(ends + "2\n")) << world.ctl({"metrics"});
  EXPECT_TRUE(counts(starts + "2\n")) << world.ctl({"metrics"});
}

TEST_F(GuestState, TellsThatADeafGuestWasSwitchedOff) {
  start();
  bootVm("web1");
  world.ctl({"disable", "web1"});
  expectEnd("web1", "asked-forced", "the guest was asked to shut down by ", me());
  EXPECT_TRUE(says("web1", "web1 is wanted stopped and is stopped")) << told("web1");
  EXPECT_EQ(world.vmctl({"why", "web1"}).status, 0);
}

TEST_F(GuestState, NamesTheSignalThatEndedQemuInOrder) {
  start();
  bootVm("web1");
  kill(world.qemus("web1").front(), SIGTERM);
  expectEnd("web1", "signal", "QEMU ended: ", "stranger");
  EXPECT_TRUE(says("web1", "terminating on signal 15")) << told("web1");
}

TEST_F(GuestState, IsRunningAgainWhereItsPolicySaysSo) {
  start();
  bootVm("web1", {"--restart", "on-failure"});
  const int before = world.qemus("web1").front();
  kill(before, SIGKILL);
  EXPECT_TRUE(waitUntil(
      [&] { return !world.qemus("web1").empty() && world.qemus("web1").front() != before; }, 20))
      << told("web1");
  EXPECT_TRUE(says("web1", "web1 is wanted running and is running")) << told("web1");
  EXPECT_TRUE(says("web1", "it was started again: QEMU was killed by signal 9")) << told("web1");
  EXPECT_TRUE(world.answersOnConsole("web1", "again", "again", 20)) << world.console("web1");
  world.type("web1", powerOff);
  expectEnd("web1", "guest-shutdown", "the guest shut itself down, after ", "guest");
  EXPECT_TRUE(says("web1", "web1 is wanted running, and is stopped")) << told("web1");
  world.ctl({"set", "web1", "restart=always"});
  EXPECT_TRUE(says("web1", "web1 is wanted running and is running")) << told("web1");
}

TEST_F(GuestState, WaitsForItsPlaceWhenTheDaemonBegins) {
  start();
  addVm("db");
  addVm("web1");
  world.ctl({"set", "db", "startOrder=1", "startDelay=3600"});
  world.ctl({"stop", "db", "web1", "--now", "--wait"});
  world.end(SIGTERM);
  world.ctl({"enable", "db", "web1"});
  start();
  EXPECT_TRUE(says("db", "db is wanted running and is running")) << told("db");
  EXPECT_TRUE(says("web1", "it is started after db")) << told("web1");
  EXPECT_THAT(world.qemus("web1"), testing::IsEmpty());
}

TEST_F(GuestState, TellsThatNobodyKnowsWhoKilledQemu) {
  start();
  bootVm("web1");
  kill(world.qemus("web1").front(), SIGKILL);
  expectEnd("web1", "killed", "QEMU was killed by signal 9", "unknown");
  EXPECT_TRUE(says("web1", "web1 is wanted running, and has crashed")) << told("web1");
}

TEST_F(GuestState, TellsThatQemuCrashed) {
  start();
  bootVm("web1");
  kill(world.qemus("web1").front(), SIGSEGV);
  expectEnd("web1", "qemu-crashed", "QEMU crashed with signal 11", "QEMU");
}

TEST_F(GuestState, TellsThatTheShimWasKilled) {
  start();
  bootVm("web1");
  killShimOf("web1");
  expectEnd("web1", "shim-lost", "its shim was killed", "unknown");
}

TEST_F(GuestState, NamesTheStrangerWhoToldTheShimToEnd) {
  start();
  bootVm("web1");
  kill(world.guests("web1").front(), SIGTERM);
  expectEnd("web1", "signal", "the guest was ended by signal 15 to its shim", "stranger");
}

TEST_F(GuestState, TellsWhyQemuDidNotStart) {
  namespace fs = std::filesystem;
  const std::string aside = "/usr/bin/qemu-aside";
  fs::rename(Vm::fakes::qemuPath, aside);
  std::ofstream(Vm::fakes::qemuPath) << "#!/bin/sh\necho 'qemu: out of ideas' >&2\nexit 1\n";
  fs::permissions(Vm::fakes::qemuPath, fs::perms(0755));
  start({"--qemu-reads", Vm::fakes::programs});
  ASSERT_EQ(addVm("web1").status, 0);
  ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmProcess", "web1", "start-failed"); }, 20))
      << told("web1");
  EXPECT_THAT(world.row("vmProcess", "web1"), HasSubstr("QEMU did not start: qemu: out of ideas"));
  fs::rename(aside, Vm::fakes::qemuPath);
}

TEST_F(GuestState, IsStoppingAndSaysWhenItIsSwitchedOff) {
  world.start({"--shim", VMAGENT_SHIM, "--accel", "tcg", "--stop-timeout", "30"});
  bootVm("web1");
  world.ctl({"disable", "web1"});
  EXPECT_TRUE(says("web1", "web1 is wanted stopped, and is stopping")) << told("web1");
  EXPECT_TRUE(says("web1", "Next: it is switched off in ")) << told("web1");
  kill(world.qemus("web1").front(), SIGKILL);
}

TEST_F(GuestState, IsRefusedWithoutAnImage) {
  start();
  bootVm("web1");
  const std::string image = "/var/run/web1.img";
  world.type("web1", powerOff);
  ASSERT_TRUE(says("web1", "stopped"));
  std::filesystem::rename(image, image + ".aside");
  world.ctl({"restart", "web1", "--force"});
  EXPECT_TRUE(says("web1", "is refused")) << told("web1");
  EXPECT_TRUE(says("web1", image)) << told("web1");
  std::filesystem::rename(image + ".aside", image);
  EXPECT_TRUE(says("web1", "is running")) << told("web1");
}

TEST_F(GuestState, IsHungWhileItsQemuStandsStill) {
  start();
  bootVm("web1");
  kill(world.qemus("web1").front(), SIGSTOP);
  EXPECT_TRUE(waitUntil(
      [&] {
        return world.vmctl({"why", "web1"}).out.find("is hung") != std::string::npos;
      },
      40))
      << told("web1");
  kill(world.qemus("web1").front(), SIGCONT);
  EXPECT_TRUE(says("web1", "is running")) << told("web1");
}

TEST_F(GuestState, IsTheSameToTheNextDaemonSinceTheSameTime) {
  start();
  bootVm("web1");
  runVm("web2");
  world.type("web1", powerOff);
  expectEnd("web1", "guest-shutdown", "the guest shut itself down", "guest");
  const std::string ended = world.row("vmProcess", "web1");
  ASSERT_TRUE(says("web2", "is running"));
  const auto sinceOf = [&](const std::string& vm) {
    const std::string row = world.row("vmProcess", vm);
    const size_t at = row.find("\"since\":");
    return row.substr(at, row.find(',', at) - at);
  };
  const std::string since = sinceOf("web2");
  world.end(SIGKILL);
  start();
  ASSERT_TRUE(says("web2", "is running")) << told("web2");
  EXPECT_TRUE(waitUntil([&] { return sinceOf("web2") == since; })) << told("web2");
  EXPECT_TRUE(waitUntil([&] { return world.hasRow("vmProcess", "web2", R"("endCause":"")"); }));
  EXPECT_TRUE(world.hasRow("vmProcess", "web1", R"("endCause":"guest-shutdown")")) << ended;
}

}  // namespace
}  // namespace host::fakes
