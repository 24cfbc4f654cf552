// Real guests in trouble: what ends, hangs or speaks out of turn, and what is told of it.
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <sstream>

#include "runtime/base/Descriptor.h"
#include "tests/system/GuestFixture.h"
#include "tests/system/PrivateMounts.h"

namespace host::fakes {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

class GuestInTrouble : public GuestFixture {
 protected:
  // The longest that the agent let the VM go without a poll, in seconds.
  double longestPause(const std::string& name) const {
    const auto polls = world.polls(name);
    double longest = 0;
    for (size_t i = 1; i < polls.size(); ++i) longest = std::max(longest, polls[i] - polls[i - 1]);
    return longest;
  }
};

pid_t parentOf(pid_t process) {
  const std::string stat = contentOf("/proc/" + std::to_string(process) + "/stat");
  std::istringstream rest(stat.substr(stat.rfind(')') + 3));  // past the state
  pid_t parent = 0;
  rest >> parent;
  return parent;
}

// What the agent would be late by, at least, if it waited for a QEMU that is silent: the shim gives
// up after so many seconds, the agent itself later.
constexpr double leastWait = 4;

// Ends.

TEST_F(GuestInTrouble, ThatPowersOffIsShownStoppedWithNoProblemAndLeavesNothing) {
  start();
  runVm("web1");
  world.type("web1", powerOff);
  ASSERT_TRUE(becomes("web1", "Stopped"));
  EXPECT_EQ(world.row("vmProblem", "web1"), "");
  world.ctl({"disable", "web1", "--wait"});
  EXPECT_EQ(world.row("vmProblem", "web1"), "");
  expectNothingLeftOf("web1");
}

TEST_F(GuestInTrouble, ThatResetsGoesOnInTheSameQemu) {
  start();
  runVm("web1");
  const auto before = world.qemus("web1");
  const size_t from = world.console("web1").size();
  world.type("web1", reset);
  EXPECT_TRUE(world.saysOnConsole("web1", ready, from)) << world.console("web1");
  EXPECT_EQ(world.qemus("web1"), before);
  expectEcho("web1", "still here");
  EXPECT_THAT(world.row("vmStatus", "web1"), HasSubstr(R"("state":"Running")"));
}

TEST_F(GuestInTrouble, ThatHaltsForGoodGoesOnRunningUntilItIsDisabled) {
  start({"--trace", "1,8"});
  runVm("web1");
  const auto before = world.qemus("web1");
  const size_t from = world.console("web1").size();
  world.type("web1", halt);
  ASSERT_TRUE(world.saysOnConsole("web1", "HALTED", from)) << world.console("web1");
  waitForPolls("web1", 1);
  EXPECT_THAT(world.row("vmStatus", "web1"), HasSubstr(R"("state":"Running")"));
  EXPECT_EQ(world.row("vmProblem", "web1"), "");
  EXPECT_EQ(world.qemus("web1"), before);
  world.ctl({"disable", "web1", "--wait"});
  expectNothingLeftOf("web1");
}

TEST_F(GuestInTrouble, WhoseQemuCrashesIsShownStoppedAndTheSignalIsNamed) {
  start();
  runVm("web1");
  Vm::fakes::signalProcess(world.qemus("web1").at(0), SIGSEGV);
  ASSERT_TRUE(becomes("web1", "Stopped"));
  EXPECT_TRUE(waitUntil([&] { return world.hasRow("vmProblem", "web1", R"("source":"qemu")"); }));
  EXPECT_THAT(world.row("vmProblem", "web1"), HasSubstr("signal 11"));
}

TEST_F(GuestInTrouble, WhoseShimIsKilledLosesItsQemuAndCanBeRestarted) {
  start();
  runVm("web1");
  ASSERT_THAT(world.guests("web1"), SizeIs(1));
  Vm::fakes::signalProcess(world.guests("web1").at(0), SIGKILL);
  EXPECT_TRUE(becomes("web1", "Stopped"));
  EXPECT_TRUE(waitUntil([&] { return world.qemus("web1").empty(); }));
  world.ctl({"restart", "web1"});
  world.ctl({"wait", "web1", "--for", "state=Running", "--timeout", "40"});
  EXPECT_THAT(world.qemus("web1"), SizeIs(1));
  world.ctl({"disable", "web1", "--wait"});
  expectNothingLeftOf("web1");
}

TEST_F(GuestInTrouble, WhoseShimIsToldToEndByAStrangerNamesHim) {
  start();
  runVm("web1");
  const auto expectNamed = [&](pid_t shim, int signal) {
    Vm::fakes::signalProcess(shim, signal);
    ASSERT_TRUE(becomes("web1", "Stopped"));
    EXPECT_THAT(world.row("vmProblem", "web1"),
                HasSubstr("ended by signal " + std::to_string(signal) +
                          " to its shim, from process " + std::to_string(getpid()) + " (" +
                          program_invocation_short_name + "); 'vmctl restart web1'"));
    world.ctl({"restart", "web1", "--wait"});
    EXPECT_EQ(world.row("vmProblem", "web1"), "");
  };
  expectNamed(world.guests("web1").at(0), SIGHUP);
  // Of a guest that was taken up, the one that stands in, and the one that has it.
  for (const bool standsIn : {true, false}) {
    world.end(SIGKILL);
    start();
    expectShownRunning("web1");
    const pid_t keeper = parentOf(world.qemus("web1").at(0));
    auto shims = world.guests("web1");
    ASSERT_THAT(shims, SizeIs(2));
    ASSERT_EQ(std::erase(shims, keeper), 1U);
    expectNamed(standsIn ? shims.at(0) : keeper, SIGTERM);
  }
  world.ctl({"disable", "web1", "--wait"});
  EXPECT_EQ(world.row("vmProblem", "web1"), "");
  expectNothingLeftOf("web1");
}

// Others.

TEST_F(GuestInTrouble, AreFiveStartedAtOnceAndAllRun) {
  start();
  const auto names = {"web1", "web2", "web3", "web4", "web5"};
  for (const char* name : names) ASSERT_EQ(addVm(name).status, 0);
  for (const char* name : names) {
    EXPECT_TRUE(world.saysOnConsole(name, ready)) << name << "\n" << world.log();
    expectShownRunning(name);
    EXPECT_THAT(world.qemus(name), SizeIs(1));
  }
  world.ctl({"disable", "web1", "web2", "web3", "web4", "web5", "--wait", "--timeout", "60"});
  for (const char* name : names) expectNothingLeftOf(name);
}

// It stands still until its shim gives up on an answer, 4 s after it was asked, and then through
// six polls of another VM, 5 s apart: longer than anybody's patience, the 30 s among them that a
// QEMU may take to greet.
TEST_F(GuestInTrouble, WhoseQemuHangsForHalfAMinuteKeepsItsStateAndGoesOnAndDisturbsNoOther) {
  start({"--trace", "1,8"});
  runVm("web1");
  runVm("web2");
  const auto before = world.qemus("web1");
  const std::string status = world.row("vmStatus", "web1");
  Vm::fakes::signalProcess(before.at(0), SIGSTOP);
  EXPECT_TRUE(world.shimSaid("web1", "QEMU does not answer query"));
  waitForPolls("web2", 6);
  EXPECT_EQ(world.row("vmStatus", "web1"), status);
  EXPECT_EQ(world.qemus("web1"), before);
  Vm::fakes::signalProcess(before.at(0), SIGCONT);
  expectEcho("web1", "here again");
  waitForPolls("web1", 1);
  EXPECT_EQ(world.row("vmStatus", "web1"), status);
  EXPECT_EQ(world.qemus("web1"), before);
  EXPECT_LT(longestPause("web2"), pollInterval + leastWait);
}

// Speaks out of turn.

class Stranger {
 public:
  explicit Stranger(const std::string& path)
      : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    isConnected_ =
        connect(socket_.number(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  }
  bool isConnected() const { return isConnected_; }
  void say(const std::string& text) const {
    // Refused or not: it is the other's affair.
    (void)send(socket_.number(), text.data(), text.size(), MSG_NOSIGNAL);
  }

 private:
  rt::Descriptor socket_;
  bool isConnected_ = false;
};

TEST_F(GuestInTrouble, WhoseMonitorAStrangerSendsGarbageToIsUnharmed) {
  start({"--trace", "1,8"});
  runVm("web1");
  const auto before = world.qemus("web1");
  const Stranger stranger("/var/run/web1.monitor");
  ASSERT_TRUE(stranger.isConnected());
  stranger.say(std::string(70'000, '{') + "\n\xff\xfe\n{\"execute\":\"quit\",\"id\":\"status\"}\n");
  waitForPolls("web1", 2);
  EXPECT_LT(longestPause("web1"), pollInterval + leastWait);
  expectEcho("web1", "unharmed");
  EXPECT_EQ(world.qemus("web1"), before);
  EXPECT_EQ(world.row("vmProblem", "web1"), "");
}

TEST_F(GuestInTrouble, IsTakenUpByTheNextDaemonThoughAStrangerHoldsItsMonitor) {
  start();
  runVm("web1");
  const auto before = world.qemus("web1");
  const Stranger stranger("/var/run/web1.monitor");
  stranger.say("hello?\n");
  world.end(SIGKILL);
  start();
  world.ctl({"wait", "web1", "--for", "state=Running", "--timeout", "20"});
  EXPECT_EQ(world.qemus("web1"), before);
  expectEcho("web1", "unharmed");
  world.ctl({"disable", "web1", "--wait"});
  expectNothingLeftOf("web1");
}

// A daemon that finds nobody at a monitor goes on looking for ten seconds.
TEST_F(GuestInTrouble, WhoseKeeperIsKilledWhileItsStandInStandsStillDisturbsNoOther) {
  start();
  for (const char* const name : {"web1", "web2"}) runVm(name);
  world.end(SIGKILL);
  start();
  for (const char* const name : {"web1", "web2"}) expectShownRunning(name);
  const pid_t keeper = parentOf(world.qemus("web1").at(0));
  auto shims = world.guests("web1");
  ASSERT_EQ(std::erase(shims, keeper), 1U);
  ASSERT_THAT(shims, SizeIs(1));
  Vm::fakes::signalProcess(shims.at(0), SIGSTOP);
  Vm::fakes::signalProcess(keeper, SIGKILL);
  ASSERT_TRUE(waitUntil([&] { return world.qemus("web1").empty(); }));
  for (int i = 0; i < 20; ++i) {
    const std::string device = "probe" + std::to_string(i);
    world.write("interface", "Probe", R"({"deviceName":")" + device + R"("})");
    ASSERT_TRUE(waitUntil([&] { return world.hasRow("interfaceStatus", "Probe", device); }, 1));
  }
  Vm::fakes::signalProcess(shims.at(0), SIGCONT);
  EXPECT_TRUE(becomes("web1", "Stopped"));
  EXPECT_THAT(world.row("vmProblem", "web1"), HasSubstr("ended by signal 9"));
  EXPECT_THAT(world.log(), Not(HasSubstr("cannot reconnect")));
  world.ctl({"restart", "web1", "--wait"});
  expectEcho("web2", "unharmed");
}

// Is refused.

TEST_F(GuestInTrouble, WithTheScreenPortOfAnotherIsRefusedHoweverItIsWritten) {
  start();
  ASSERT_EQ(addVm("web1", {"--vnc-port", "5901"}).status, 0);
  ASSERT_TRUE(world.saysOnConsole("web1", ready));
  const Ended ended = addVm("web2", {"--vnc-port", "5901"});
  EXPECT_EQ(ended.status, 5);
  EXPECT_THAT(ended.err, HasSubstr("'5901' is refused: must be another port"));
  EXPECT_EQ(world.row("vmConfig", "web2"), "");
  world.write("vmConfig", "web2",
              R"({"enabled":true,"diskImage":"/var/run/web2.img","memory":32,"vncPort":5901})");
  EXPECT_TRUE(waitUntil([&] { return world.hasRow("vmProblem", "web2", "VM 'web1'"); }));
  EXPECT_THAT(world.row("vmProblem", "web2"), HasSubstr(R"("source":"config")"));
  EXPECT_THAT(world.qemus("web2"), IsEmpty());
  EXPECT_THAT(world.qemus("web1"), SizeIs(1));
}

TEST_F(GuestInTrouble, WithACardThatQemuHasNotIsRefusedHoweverItIsWritten) {
  start();
  const Ended ended = addVm("web1", {"--nic", "model=e1001,mac=52:54:00:00:00:01,intf=Ethernet1"});
  EXPECT_EQ(ended.status, 5);
  EXPECT_THAT(ended.err, HasSubstr("'e1001' is refused: must be a network card of QEMU's"));
  EXPECT_EQ(world.row("vmConfig", "web1"), "");
  world.write("vmConfig", "web1",
              R"({"enabled":true,"diskImage":"/var/run/web1.img","memory":32,"vnicConfig":)"
              R"({"nic00":{"model":"e1001","macAddr":"52:54:00:00:00:01",)"
              R"("intfName":"Ethernet1"}}})");
  EXPECT_TRUE(waitUntil([&] { return world.hasRow("vmProblem", "web1", "e1001"); }));
  EXPECT_THAT(world.qemus("web1"), IsEmpty());
}

// The machine without its QEMU, for a while.
class NoQemu {
 public:
  NoQemu() { std::filesystem::rename(Vm::fakes::qemuPath, aside); }
  NoQemu(const NoQemu&) = delete;
  ~NoQemu() { std::filesystem::rename(aside, Vm::fakes::qemuPath); }

 private:
  static constexpr const char* aside = "/usr/bin/qemu-aside";
};

TEST_F(GuestInTrouble, WithoutAQemuIsNotPromisedByADaemonThatStarts) {
  const NoQemu none;
  const Ended ended = run({VMAGENTD, "--state-dir", world.stateDir, "--run-dir", world.runDir,
                           "--shim", VMAGENT_SHIM, "--accel", "tcg"});
  EXPECT_EQ(ended.status, 1);
  EXPECT_THAT(ended.err, HasSubstr("there is no QEMU at /usr/bin/qemu-system-x86_64: install the "
                                   "package qemu-system-x86"));
  EXPECT_EQ(std::count(ended.err.begin(), ended.err.end(), '\n'), 1) << ended.err;
}

// As an upgrade of its package does it: another file takes its name.
void replaceQemu() {
  const std::string another = std::string(Vm::fakes::qemuPath) + ".dpkg-new";
  std::filesystem::copy_file(Vm::fakes::qemuPath, another);
  std::filesystem::rename(another, Vm::fakes::qemuPath);
}

bool runs(pid_t process, const struct stat& program) {
  struct stat facts {};
  return stat(("/proc/" + std::to_string(process) + "/exe").c_str(), &facts) == 0 &&
         facts.st_dev == program.st_dev && facts.st_ino == program.st_ino;
}

TEST_F(GuestInTrouble, WhoseQemuIsReplacedGoesOnAndTheNextIsStartedByTheNewOne) {
  struct stat before {};
  ASSERT_EQ(stat(Vm::fakes::qemuPath, &before), 0);
  start();
  bootVm("web1");
  const auto first = world.qemus("web1");
  ASSERT_THAT(first, SizeIs(1));
  replaceQemu();
  struct stat after {};
  ASSERT_EQ(stat(Vm::fakes::qemuPath, &after), 0);
  ASSERT_NE(before.st_ino, after.st_ino);
  bootVm("web2");
  expectShownRunning("web2");
  EXPECT_TRUE(runs(world.qemus("web2").at(0), after));
  world.ctl({"restart", "web2"});
  EXPECT_TRUE(becomes("web2", "Running"));
  EXPECT_EQ(world.qemus("web1"), first);
  EXPECT_TRUE(runs(first[0], before));
  expectEcho("web1", "still here");
  EXPECT_THAT(world.log(), HasSubstr("/usr/bin/qemu-system-x86_64 was replaced"));
}

}  // namespace
}  // namespace host::fakes
