// Real guests in trouble: what ends, hangs or speaks out of turn, and what is told of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>

#include "shim/Descriptor.h"
#include "tests/system/GuestWorld.h"
#include "tests/system/PrivateMounts.h"

namespace host::fakes {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* ready = "BOOTSECTOR READY";
constexpr const char* powerOff = "\x04";
constexpr const char* reset = "\x12";
constexpr double pollInterval = 5;  // seconds, of the agent's

class GuestInTrouble : public testing::Test {
 protected:
  void start(const std::vector<std::string>& more = {}) {
    // The guest of one sector takes no notice of its power button.
    std::vector<std::string> words = {"--shim", VMAGENT_SHIM,     "--accel",
                                      "tcg",    "--stop-timeout", "1"};
    words.insert(words.end(), more.begin(), more.end());
    world.start(words);
  }
  // Returns what vmctl says. The guest's disk is its own, for it is opened for writing.
  Ended addVm(const std::string& name, const std::vector<std::string>& more = {}) const {
    const std::string disk = "/var/run/" + name + ".img";
    std::filesystem::copy_file(BOOTSECTOR, disk);
    std::vector<std::string> words = {"add", name, "--disk", disk, "--memory", "32", "--enabled"};
    words.insert(words.end(), more.begin(), more.end());
    return world.vmctl(words);
  }
  // One that is shown running.
  void runVm(const std::string& name) const {
    const Ended ended = addVm(name);
    ASSERT_EQ(ended.status, 0) << ended.err;
    ASSERT_TRUE(world.saysOnConsole(name, ready)) << world.log();
    world.ctl({"wait", name, "--for", "state=Running", "--timeout", "40"});
    ASSERT_THAT(world.qemus(name), SizeIs(1));
  }
  bool becomes(const std::string& name, const std::string& state) const {
    return waitUntil([&] { return world.hasRow("vmStatus", name, R"("state":")" + state + "\""); });
  }
  // A guest that echoes what is typed runs, and so does its console.
  void expectEcho(const std::string& name, const std::string& text) const {
    const size_t from = world.console(name).size();
    world.type(name, text);
    EXPECT_TRUE(world.saysOnConsole(name, text, from)) << world.console(name);
  }
  void expectNothingLeftOf(const std::string& name) const {
    EXPECT_THAT(world.qemus(name), IsEmpty());
    EXPECT_THAT(world.guests(name), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists("/var/run/" + name + ".monitor"));
    EXPECT_FALSE(std::filesystem::exists(world.runDir + "/vm/" + name + "/shim.sock"));
    EXPECT_FALSE(std::filesystem::exists(world.runDir + "/vm/" + name + "/console.sock"));
  }
  // The longest that the agent let the VM go without a poll, in seconds.
  double longestPause(const std::string& name) const {
    const auto polls = world.polls(name);
    double longest = 0;
    for (size_t i = 1; i < polls.size(); ++i) longest = std::max(longest, polls[i] - polls[i - 1]);
    return longest;
  }
  void waitForPolls(const std::string& name, size_t more) const {
    const size_t wanted = world.polls(name).size() + more;
    const double patience = 3 * pollInterval * static_cast<double>(more);
    EXPECT_TRUE(waitUntil([&] { return world.polls(name).size() >= wanted; }, patience));
  }

  GuestWorld world;
};

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

TEST_F(GuestInTrouble, WhoseQemuCrashesIsShownStoppedAndTheSignalIsNamed) {
  start();
  runVm("web1");
  kill(world.qemus("web1").at(0), SIGSEGV);
  ASSERT_TRUE(becomes("web1", "Stopped"));
  EXPECT_TRUE(waitUntil([&] { return world.hasRow("vmProblem", "web1", R"("source":"qemu")"); }));
  EXPECT_THAT(world.row("vmProblem", "web1"), HasSubstr("signal 11"));
}

TEST_F(GuestInTrouble, WhoseShimIsKilledLosesItsQemuAndCanBeRestarted) {
  start();
  runVm("web1");
  ASSERT_THAT(world.guests("web1"), SizeIs(1));
  kill(world.guests("web1").at(0), SIGKILL);
  EXPECT_TRUE(becomes("web1", "Stopped"));
  EXPECT_TRUE(waitUntil([&] { return world.qemus("web1").empty(); }));
  world.ctl({"restart", "web1"});
  world.ctl({"wait", "web1", "--for", "state=Running", "--timeout", "40"});
  EXPECT_THAT(world.qemus("web1"), SizeIs(1));
  world.ctl({"disable", "web1", "--wait"});
  expectNothingLeftOf("web1");
}

// Others.

TEST_F(GuestInTrouble, AreFiveStartedAtOnceAndAllRun) {
  start();
  const auto names = {"web1", "web2", "web3", "web4", "web5"};
  for (const char* name : names) ASSERT_EQ(addVm(name).status, 0);
  for (const char* name : names) {
    EXPECT_TRUE(world.saysOnConsole(name, ready)) << name << "\n" << world.log();
    world.ctl({"wait", name, "--for", "state=Running", "--timeout", "40"});
    EXPECT_THAT(world.qemus(name), SizeIs(1));
  }
  world.ctl({"disable", "web1", "web2", "web3", "web4", "web5", "--wait", "--timeout", "60"});
  for (const char* name : names) expectNothingLeftOf(name);
}

TEST_F(GuestInTrouble, WhoseQemuHangsForSecondsKeepsItsStateAndGoesOnAndDisturbsNoOther) {
  start({"--trace", "1,8"});
  runVm("web1");
  runVm("web2");
  const pid_t qemu = world.qemus("web1").at(0);
  const std::string before = world.row("vmStatus", "web1");
  kill(qemu, SIGSTOP);
  waitForPolls("web2", 2);  // so that one of web1 is given up, too
  EXPECT_EQ(world.row("vmStatus", "web1"), before);
  kill(qemu, SIGCONT);
  EXPECT_TRUE(world.answersOnConsole("web1", "here again", "here again"));
  waitForPolls("web1", 1);
  EXPECT_EQ(world.row("vmStatus", "web1"), before);
  EXPECT_THAT(world.qemus("web1"), ElementsAre(qemu));
  // Far below what it takes to give up a silent QEMU, and far above what a busy machine adds.
  EXPECT_LT(longestPause("web2"), pollInterval + 1);
}

// What is measured: how much later than due the agent had an answer to the poll that came after
// another guest's end. A daemon that waits for a dying guest would be late each time; a busy
// machine is not.
TEST_F(GuestInTrouble, ThatPowersOffDelaysTheNextPollOfAnotherByLessThan50Ms) {
  start({"--trace", "1,8"});
  for (const char* name : {"stays", "web1", "web2", "web3"}) ASSERT_EQ(addVm(name).status, 0);
  for (const char* name : {"stays", "web1", "web2", "web3"})
    world.ctl({"wait", name, "--for", "state=Running", "--timeout", "40"});
  double shortest = pollInterval;
  waitForPolls("stays", 1);
  for (const char* name : {"web1", "web2", "web3"}) {
    const size_t before = world.polls("stays").size();
    // Just before the next poll is due, so that what the end takes delays it.
    waitUntil([] { return false; }, pollInterval - 0.1);
    world.type(name, powerOff);
    ASSERT_TRUE(becomes(name, "Stopped"));
    ASSERT_TRUE(waitUntil([&] { return world.polls("stays").size() > before; }));
    const auto polls = world.polls("stays");
    shortest = std::min(shortest, polls.at(before) - polls.at(before - 1) - pollInterval);
  }
  EXPECT_LT(shortest, 0.05);
}

// What is measured: the longest that a row which a program committed took to have its effect in the
// status, over and over while another guest died.
TEST_F(GuestInTrouble, ThatIsKilledLeavesTheDaemonItsTimeForOthers) {
  start();
  const auto names = {"web1", "web2", "web3"};
  for (const char* name : names) ASSERT_EQ(addVm(name).status, 0);
  for (const char* name : names)
    world.ctl({"wait", name, "--for", "state=Running", "--timeout", "40"});
  using Clock = std::chrono::steady_clock;
  double shortest = pollInterval;
  int count = 0;
  for (const char* name : names) {
    kill(world.qemus(name).at(0), SIGKILL);
    double longest = 0;
    bool dead = false;
    while (!dead) {
      dead = world.hasRow("vmStatus", name, R"("state":"Stopped")");  // once more after it
      const std::string device = "probe" + std::to_string(++count);
      const auto begin = Clock::now();
      world.write("interface", "Probe", R"({"deviceName":")" + device + "\"}");
      ASSERT_TRUE(waitUntil([&] { return world.hasRow("interfaceStatus", "Probe", device); }));
      longest = std::max(longest, std::chrono::duration<double>(Clock::now() - begin).count());
    }
    shortest = std::min(shortest, longest);
  }
  // Of three ends the best: a busy machine is slow at times, a daemon that waits always.
  EXPECT_LT(shortest, 0.05);
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
  shim::Descriptor socket_;
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
  EXPECT_LT(longestPause("web1"), pollInterval + 1);
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

}  // namespace
}  // namespace host::fakes
