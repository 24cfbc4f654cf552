// The road from an operator's command to a guest and back: vmagentd, vmctl, a scripted QEMU.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>

#include "tests/system/DaemonFixture.h"
#include "tests/system/PrivateMounts.h"

namespace host::fakes {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

class Daemon : public DaemonFixture {};

// Every verb.

TEST_F(Daemon, RunsAVmThatIsEnabledAndEndsItWhenItIsDisabled) {
  world.start();
  world.addVm("web1");
  world.ctl({"enable", "web1", "--wait"});
  EXPECT_THAT(world.guests("web1"), SizeIs(1));
  EXPECT_THAT(world.ctl({"list"}), HasSubstr("running  running"));
  world.ctl({"disable", "web1", "--wait"});
  EXPECT_THAT(world.guests(), IsEmpty());
  EXPECT_THAT(world.row("vmStatus", "web1"), HasSubstr(R"("enabled":false)"));
}

TEST_F(Daemon, RestartsAVmWithWhatWasSetMeanwhile) {
  world.start();
  runVm("web1");
  const auto first = world.guests("web1");
  world.ctl({"set", "web1", "memory=128"});
  ASSERT_TRUE(waitUntil([&] { return !world.row("vmProblem", "web1").empty(); }));
  EXPECT_THAT(world.row("vmProblem", "web1"), HasSubstr("memory: changed since"));
  world.ctl({"restart", "web1", "--wait"});
  ASSERT_THAT(world.guests("web1"), SizeIs(1));
  EXPECT_NE(world.guests("web1"), first);
  EXPECT_EQ(world.row("vmProblem", "web1"), "");
  std::ifstream started("/var/run/web1.started");
  const std::string how{std::istreambuf_iterator<char>(started), {}};
  EXPECT_THAT(how, HasSubstr("arg -m\narg 128\n"));
}

TEST_F(Daemon, RestartsAGuestThatEndedByItself) {
  world.start();
  runVm("web1");
  Vm::fakes::signalProcess(world.guests("web1").at(0), SIGKILL);
  ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmStatus", "web1", R"("state":"Stopped")"); }));
  EXPECT_THAT(world.vmctl({"start", "web1"}).err, HasSubstr("web1: is started again"));
  EXPECT_TRUE(waitUntil([&] { return isOn("web1"); }));
}

TEST_F(Daemon, RemovesAVmWithAllThatWasOfIt) {
  world.start();
  runVm("web1");
  world.ctl({"remove", "web1", "--force", "--wait"});
  EXPECT_THAT(world.guests(), IsEmpty());
  for (const char* table : {"vmConfig", "vmStatus", "vmProcess", "vmProblem"})
    EXPECT_EQ(world.row(table, "web1"), "") << table;
}

TEST_F(Daemon, ShowsWhatWasAsked) {
  world.start();
  runVm("web1");
  EXPECT_THAT(world.ctl({"show", "web1"}), HasSubstr("Process:  running, pid "));
  EXPECT_THAT(world.ctl({"list", "-o", "name"}), HasSubstr("web1"));
  EXPECT_EQ(world.vmctl({"wait", "web1", "--for", "state=Running", "--timeout", "20"}).status, 0);
  EXPECT_EQ(world.vmctl({"wait", "web1", "--for", "state=Stopped", "--timeout", "1"}).status, 7);
  EXPECT_EQ(world.vmctl({"show", "web2"}).status, 3);
}

TEST_F(Daemon, RunsWhatWasConfiguredBeforeItStarted) {
  world.start();
  world.addVm("web1", {"--enabled"});
  ASSERT_TRUE(waitUntil([&] { return isOn("web1"); }));
  world.ctl({"disable", "web1", "--wait"});
  EXPECT_EQ(world.end(SIGTERM), 0);
  EXPECT_EQ(world.vmctl({"enable", "web1"}).status, 0);
  EXPECT_THAT(world.vmctl({"list"}).err, HasSubstr("not running"));
  world.start();
  EXPECT_TRUE(waitUntil([&] { return isOn("web1"); }));
}

// Requests that cross.

TEST_F(Daemon, StartsAnewAVmThatIsDisabledAndEnabledAtOnce) {
  world.script("web1", "ignore-sigterm\nmonitor\nserve 0\n");
  world.start();
  runVm("web1");
  const pid_t first = world.guests("web1").at(0);
  world.ctl({"disable", "web1"});
  world.ctl({"enable", "web1"});
  Vm::fakes::signalProcess(first, SIGKILL);  // it would never have ended by itself
  ASSERT_TRUE(waitUntil([&] { return isOn("web1"); }));
  EXPECT_THAT(world.guests("web1"), SizeIs(1));
}

// What the daemon says before it heard of the commands must not be taken for the second's outcome.
TEST_F(Daemon, HasNoGuestOfAVmThatWasSwitchedOffJustAfterItWasSwitchedOn) {
  for (int round = 0; round < 10; ++round) {
    world.start();
    if (round == 0) world.addVm("web1");
    world.ctl({"enable", "web1"});
    world.ctl({"disable", "web1", "--wait"});
    EXPECT_THAT(world.guests(), IsEmpty()) << round;
    ASSERT_TRUE(world.hasRow("vmStatus", "web1", R"("enabled":false)")) << round;
    // A daemon that was still about to start it would leave it.
    world.end(SIGTERM);
    EXPECT_THAT(world.guests(), IsEmpty()) << round;
  }
}

TEST_F(Daemon, NeverRunsTwoGuestsOfAVmThatIsRemovedAndAddedAtOnce) {
  world.script("web1", "ignore-sigterm\nmonitor\nserve 0\n");
  world.start();
  runVm("web1");
  const pid_t first = world.guests("web1").at(0);
  world.ctl({"remove", "web1", "--force"});
  world.addVm("web1", {"--enabled"});
  ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmProcess", "web1", R"("ending")"); }));
  EXPECT_THAT(world.guests("web1"), ElementsAre(first));
  Vm::fakes::signalProcess(first, SIGKILL);
  ASSERT_TRUE(waitUntil([&] { return isOn("web1"); }));
  EXPECT_NE(world.guests("web1").at(0), first);
}

TEST_F(Daemon, TakesARowThatWasMadeAnewInOneCommitForAnotherVm) {
  world.start();
  runVm("web1");
  const pid_t first = world.guests("web1").at(0);
  world.end(SIGTERM);  // nobody looks meanwhile
  world.write("vmConfig", "web1", "");
  world.write("vmConfig", "web1",
              R"({"enabled":true,"diskImage":"/var/run/disk.img","memory":96})");
  world.start();
  ASSERT_TRUE(waitUntil([&] { return isOn("web1") && world.guests("web1").at(0) != first; }));
  std::ifstream started("/var/run/web1.started");
  const std::string how{std::istreambuf_iterator<char>(started), {}};
  EXPECT_THAT(how, HasSubstr("arg -m\narg 96\n"));
}

// What a foreign program writes.

TEST_F(Daemon, RefusesAForeignRowAndSaysWhyWhileOthersRun) {
  world.start();
  runVm("web1");
  world.write("vmConfig", "bad", R"({"enabled":true,"diskImage":"relative.img","memory":0})");
  ASSERT_TRUE(waitUntil([&] { return !world.row("vmProblem", "bad").empty(); }));
  EXPECT_THAT(world.row("vmProblem", "bad"), HasSubstr("diskImage: 'relative.img' is refused"));
  EXPECT_THAT(world.row("vmProblem", "bad"), HasSubstr("memory: '0' is refused"));
  EXPECT_EQ(world.row("vmStatus", "bad"), "");
  EXPECT_TRUE(isOn("web1"));
}

TEST_F(Daemon, KeepsTheLastValidRecordOfAVmWhoseRowIsSpoilt) {
  world.start();
  runVm("web1");
  const auto guests = world.guests("web1");
  world.write("vmConfig", "web1", R"({"enabled":false,"memory":0})");
  ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmProblem", "web1", "config"); }));
  EXPECT_EQ(world.guests("web1"), guests);
  world.write("vmConfig", "web1", "");
  ASSERT_TRUE(waitUntil([&] { return world.guests("web1").empty(); }));
}

TEST_F(Daemon, RefusesTheNewcomerOfTwoThatClashUntilTheHolderIsGone) {
  const auto withMac = [](const char* mac) {
    return std::string(R"({"enabled":true,"diskImage":"/var/run/disk.img","memory":64,)") +
           R"("vnicConfig":{"nic00":{"model":"e1000","macAddr":")" + mac +
           R"(","intfName":"Ethernet1"}}})";
  };
  world.start();
  world.write("vmConfig", "first", withMac("52:54:00:00:00:01"));
  ASSERT_TRUE(waitUntil([&] { return isOn("first"); }));
  world.write("vmConfig", "second", withMac("52:54:00:00:00:01"));
  ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmProblem", "second", "first"); }));
  EXPECT_THAT(world.guests("second"), IsEmpty());
  world.write("vmConfig", "first", withMac("52:54:00:00:00:02"));
  EXPECT_TRUE(waitUntil([&] { return isOn("second"); }));
  EXPECT_TRUE(waitUntil([&] { return !world.hasRow("vmProblem", "second", "first"); }));
}

TEST_F(Daemon, LetsNoForeignStatusIntoTheAgent) {
  world.start();
  runVm("web1");
  world.write("vmStatus", "web1", R"({"enabled":false,"state":"Lies"})");
  world.ctl({"disable", "web1"});
  ASSERT_TRUE(waitUntil([&] { return isOff("web1"); }));
  EXPECT_THAT(world.row("vmStatus", "web1"), Not(HasSubstr("Lies")));
}

// Trouble.

TEST_F(Daemon, SaysThatADiskImageIsMissingAndStartsWhenItIsThere) {
  world.start();
  world.write("vmConfig", "web1",
              R"({"enabled":true,"diskImage":"/var/run/later.img","memory":64})");
  ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmProblem", "web1", "image"); }));
  std::filesystem::copy_file(world.image, "/var/run/later.img");
  ASSERT_TRUE(waitUntil([&] { return isOn("web1"); }));
  EXPECT_TRUE(waitUntil([&] { return world.row("vmProblem", "web1").empty(); }));
}

TEST_F(Daemon, TellsOfAGuestThatEndsAtOnceAndOfNoOther) {
  world.script("bad", "exit 1\n");
  world.start();
  runVm("good");
  world.addVm("bad", {"--enabled"});
  ASSERT_TRUE(
      waitUntil([&] { return world.hasRow("vmProblem", "bad", "ended with exit status 1"); }, 30));
  EXPECT_TRUE(isOn("good"));
}

TEST_F(Daemon, RefusesToRunBesideAnother) {
  world.start();
  const Ended second =
      run({VMAGENTD, "--state-dir", world.stateDir, "--run-dir", world.runDir, "--shim", "off"});
  EXPECT_EQ(second.status, 4);
  EXPECT_THAT(second.err,
              HasSubstr("another daemon runs already (process " + std::to_string(world.daemon())));
  const Ended elsewhere = run(
      {VMAGENTD, "--state-dir", "/var/run/state2", "--run-dir", "/var/run/run2", "--shim", "off"});
  EXPECT_EQ(elsewhere.status, 4) << "they would use the same monitors";
}

// As in a container, or in another place that has a /run of its own.
TEST_F(Daemon, RefusesToRunBesideAnotherThatHasItsStateAndARunOfItsOwn) {
  const std::string elsewhere = "mount -t tmpfs none /mnt && mkdir /mnt/state && mount --bind " +
                                world.stateDir +
                                " /mnt/state && mount -t tmpfs none /var/run && exec " VMAGENTD
                                " --state-dir /mnt/state --run-dir /var/run/vmagent --shim off";
  world.start();
  const Ended second = run({"/usr/bin/unshare", "--mount", "/bin/sh", "-c", elsewhere});
  EXPECT_EQ(second.status, 4);
  EXPECT_THAT(second.err,
              HasSubstr("another daemon runs already (process " + std::to_string(world.daemon()) +
                        "): it holds /mnt/state/vmagentd.lock"));
  const Ended third =
      run({"/usr/bin/unshare", "--mount", "--pid", "--fork", "/bin/sh", "-c", elsewhere});
  EXPECT_EQ(third.status, 4);
  EXPECT_THAT(third.err, HasSubstr("another daemon runs already (in another container)"));
}

TEST_F(Daemon, EndsWithoutItsGuestsAndTheNextOneEndsThemAndStartsThemAnew) {
  world.start();
  runVm("web1");
  const auto left = world.guests("web1");
  EXPECT_EQ(world.end(SIGTERM), 0);
  EXPECT_EQ(world.guests("web1"), left);
  world.start();
  ASSERT_TRUE(waitUntil([&] { return isOn("web1") && world.guests("web1") != left; }));
}

TEST_F(Daemon, KillsAGuestThatWillNotEndBeforeItStartsItAnew) {
  world.script("web1", "ignore-sigterm\nmonitor\nserve 0\n");
  world.start();
  runVm("web1");
  const auto left = world.guests("web1");
  EXPECT_EQ(world.end(SIGKILL), -SIGKILL);
  world.start();
  EXPECT_EQ(world.guests("web1"), left);
  ASSERT_TRUE(waitUntil([&] { return isOn("web1") && world.guests("web1") != left; }));
}

TEST_F(Daemon, EndsNoGuestForALostConfigurationAndTheNextNeitherUntilItIsGivenUp) {
  world.start();
  runVm("web1");
  runVm("web2");
  const auto guests = world.guests();
  for (const char* suffix : {"", "-wal", "-shm", "-bell"})
    std::filesystem::remove(world.stateDir + "/config.db" + suffix);
  ASSERT_TRUE(waitUntil([&] { return world.log().find("config.db is gone") != std::string::npos; }))
      << world.log();
  EXPECT_EQ(world.guests(), guests);
  EXPECT_EQ(world.end(SIGTERM), 0);
  world.start();
  ASSERT_TRUE(waitUntil([&] {
    return world.hasRow("vmProblem", "web1", "not configured") &&
           world.hasRow("vmProblem", "web2", "not configured");
  }));
  EXPECT_EQ(world.guests(), guests);
  world.ctl({"remove", "web2", "--force", "--wait"});
  EXPECT_THAT(world.guests("web2"), IsEmpty());
  // Nobody can drive it without a shim.
  const auto left = world.guests("web1");
  world.addVm("web1", {"--enabled"});
  EXPECT_TRUE(waitUntil([&] { return isOn("web1") && world.guests("web1") != left; }));
  EXPECT_EQ(world.row("vmProblem", "web1"), "");
}

TEST_F(Daemon, NeedsAQemuPathAndNothingElseOfTheMachine) {
  std::filesystem::remove("/usr/bin/qemu-system-x86_64");
  world.start();
  world.addVm("web1", {"--enabled"});
  EXPECT_TRUE(
      waitUntil([&] { return world.hasRow("vmProblem", "web1", "could not be executed"); }, 30));
}

TEST_F(Daemon, GivesAGuestNothingOfItsOwnEnvironment) {
  setenv("TOKEN_OF_AN_OPERATOR", "secret", 1);
  world.start();
  unsetenv("TOKEN_OF_AN_OPERATOR");
  runVm("web1");
  const auto guests = world.guests("web1");
  ASSERT_THAT(guests, SizeIs(1));
  const std::string own = contentOf("/proc/" + std::to_string(world.daemon()) + "/environ");
  const std::string its = contentOf("/proc/" + std::to_string(guests.front()) + "/environ");
  EXPECT_THAT(own, HasSubstr("TOKEN_OF_AN_OPERATOR"));
  EXPECT_THAT(its, Not(HasSubstr("TOKEN_OF_AN_OPERATOR")));
  EXPECT_THAT(its, HasSubstr("VMAGENT_STORE="));
  EXPECT_THAT(its, HasSubstr("VMAGENT_ROW=0000"));
}

TEST_F(Daemon, TellsItsServiceManagerThatItIsReadyAndAlive) {
  const int manager = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, "/var/run/notify");
  ASSERT_EQ(bind(manager, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  setenv("NOTIFY_SOCKET", address.sun_path, 1);
  setenv("WATCHDOG_USEC", "100000", 1);
  world.start();
  unsetenv("NOTIFY_SOCKET");
  unsetenv("WATCHDOG_USEC");
  std::string told;
  EXPECT_TRUE(waitUntil([&] {
    char bytes[256];
    const ssize_t length = recv(manager, bytes, sizeof bytes, MSG_DONTWAIT);
    if (length > 0) told.append(bytes, static_cast<size_t>(length)).append("\n");
    return told.find("WATCHDOG=1\nWATCHDOG=1\n") != std::string::npos;
  })) << told;
  EXPECT_THAT(told, HasSubstr("READY=1"));
  close(manager);
}

TEST_F(Daemon, SaysWhatIsWrongWithItsDirectories) {
  const Ended ended = run(
      {VMAGENTD, "--state-dir", "/var/run/none/state", "--run-dir", world.runDir, "--shim", "off"});
  EXPECT_EQ(ended.status, 1);
  EXPECT_THAT(ended.err, HasSubstr("the directory /var/run/none/state cannot be made"));
}

}  // namespace
}  // namespace host::fakes
