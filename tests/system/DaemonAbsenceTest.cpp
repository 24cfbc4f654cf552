// The command line while its daemon is not there, not there yet, busy, or dead.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <thread>

#include "tests/system/DaemonWorld.h"
#include "tests/system/PrivateMounts.h"

namespace host::fakes {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr const char* stale = "vmctl: vmagentd is not running: the status is as it was left\n";
constexpr const char* delayed = "vmctl: vmagentd is not running: nothing happens until it does\n";

class DaemonsAbsence : public testing::Test {
 protected:
  ~DaemonsAbsence() override {
    if (world.daemon() > 0) Vm::fakes::signalProcess(world.daemon(), SIGCONT);
  }
  void runVm() {
    world.start();
    world.addVm("web1", {"--enabled"});
    ASSERT_TRUE(waitUntil([&] {
      return world.hasRow("vmStatus", "web1", R"("enabled":true)") &&
             world.guests("web1").size() == 1;
    }));
  }
  // It has ended, or is held, once this returns.
  void hold() const {
    Vm::fakes::signalProcess(world.daemon(), SIGSTOP);
    int wait = 0;
    ASSERT_EQ(waitpid(world.daemon(), &wait, WUNTRACED), world.daemon());
    ASSERT_TRUE(WIFSTOPPED(wait));
  }
  void goOn() const { Vm::fakes::signalProcess(world.daemon(), SIGCONT); }

  DaemonWorld world;
};

// Not there.

TEST_F(DaemonsAbsence, IsToldByEachVerbThatShowsAndNothingIsShownAsIfItWereSo) {
  runVm();
  world.end(SIGTERM);
  for (const std::vector<std::string>& words : {std::vector<std::string>{"list"},
                                                {"show", "web1"},
                                                {"interface", "list"},
                                                {"fdb", "list"}}) {
    const Ended ended = world.vmctl(words);
    EXPECT_EQ(ended.status, 0) << words[0];
    EXPECT_THAT(ended.err, HasSubstr(stale)) << words[0];
  }
  EXPECT_THAT(world.ctl({"list", "-o", "json"}), HasSubstr("\"stale\": true"));
  EXPECT_EQ(world.vmctl({"logs", "web1"}).status, 1) << "the scripted guest has no console";
}

TEST_F(DaemonsAbsence, LetsWhatIsAskedForBeWrittenDownAndSaysThatItWaits) {
  runVm();
  world.end(SIGTERM);
  const Ended set = world.vmctl({"set", "web1", "memory=65"});
  EXPECT_EQ(set.status, 0);
  EXPECT_THAT(set.err, HasSubstr(delayed));
  EXPECT_EQ(world.vmctl({"disable", "web1"}).status, 0);
  const Ended waits = world.vmctl({"enable", "web1", "--wait"});
  EXPECT_EQ(waits.status, 1);
  EXPECT_THAT(waits.err, HasSubstr("it is written down, and nobody to wait for"));
  EXPECT_THAT(world.row("vmConfig", "web1"), HasSubstr(R"("enabled":true)"));
  EXPECT_EQ(world.vmctl({"wait", "web1", "--for", "state=Running"}).status, 1);
  EXPECT_EQ(world.vmctl({"console", "web1"}).status, 2) << "a terminal is asked for first";
  EXPECT_EQ(world.vmctl({"doctor"}).status, 1);
}

// Not there yet.

TEST_F(DaemonsAbsence, BeforeItsFirstStartIsSaidToBeTheReason) {
  const Ended ended = world.vmctl({"list"});
  EXPECT_EQ(ended.status, 6);
  EXPECT_EQ(ended.err, "vmctl: " + world.stateDir +
                           "/config.db does not exist: put it back if it was lost; or start or "
                           "restart vmagentd, which makes an empty one\n");
}

TEST_F(DaemonsAbsence, WhileItStartsEndsWithEachVerbDoneOrRefusedInOneLine) {
  world.launch();
  // Whatever it has made by then: nothing, one database, or both.
  for (int i = 0; i < 20; ++i) {
    const Ended ended = world.vmctl({"list"});
    EXPECT_THAT(ended.status, testing::AnyOf(0, 6)) << ended.err;
    EXPECT_LE(std::count(ended.err.begin(), ended.err.end(), '\n'), 1) << ended.err;
    if (ended.status == 0 && ended.err.find("not running") == std::string::npos) break;
  }
  ASSERT_TRUE(waitUntil([&] { return world.vmctl({"list"}).status == 0; })) << world.log();
}

TEST_F(DaemonsAbsence, EndsForWhoWaitsWhenItIsStartedMeanwhile) {
  runVm();
  world.end(SIGKILL);
  world.ctl({"disable", "web1"});
  world.start();
  EXPECT_EQ(world.vmctl({"disable", "web1", "--wait", "--timeout", "20"}).status, 0);
  EXPECT_THAT(world.guests("web1"), IsEmpty());
}

// Busy.

TEST_F(DaemonsAbsence, IsNoAbsenceWhileItIsHeldAndWhoWaitsIsToldWhatIsSo) {
  runVm();
  hold();
  const Ended list = world.vmctl({"list"});
  EXPECT_EQ(list.status, 0);
  EXPECT_EQ(list.err, "");
  world.ctl({"disable", "web1"});
  const Ended wait = world.vmctl({"wait", "web1", "--for", "enabled=false", "--timeout", "0.3"});
  EXPECT_EQ(wait.status, 7);
  EXPECT_THAT(wait.err, HasSubstr("web1: timed out after 0.3 s: enabled is true, "));
  EXPECT_THAT(world.guests("web1"), SizeIs(1));
  goOn();
  EXPECT_EQ(world.vmctl({"disable", "web1", "--wait", "--timeout", "20"}).status, 0);
}

TEST_F(DaemonsAbsence, IsOverForAllThatWasAskedWhileItWasHeld) {
  runVm();
  hold();
  for (int i = 0; i < 20; ++i) {
    const std::string name = "vm" + std::to_string(i);
    world.addVm(name);
    world.ctl({"remove", name});
  }
  world.ctl({"set", "web1", "memory=65"});
  EXPECT_EQ(world.row("vmProblem", "web1"), "");
  goOn();
  EXPECT_TRUE(waitUntil([&] { return world.hasRow("vmProblem", "web1", "memory: changed"); }));
}

// Dead.

TEST_F(DaemonsAbsence, IsToldToWhoWaitsWhenItBeginsMeanwhile) {
  runVm();
  hold();
  Ended disable;
  std::thread operators([&] {
    disable = world.vmctl({"disable", "web1", "--wait", "--timeout", "3"});
  });
  EXPECT_TRUE(waitUntil([&] { return world.hasRow("vmConfig", "web1", R"("enabled":false)"); }));
  world.end(SIGKILL);
  operators.join();
  EXPECT_THAT(disable.status, testing::AnyOf(1, 7)) << disable.err;
  EXPECT_THAT(disable.err, HasSubstr("vmagentd is not running"));
}

TEST_F(DaemonsAbsence, ByAKillLeavesNothingThatLooksAlive) {
  runVm();
  world.end(SIGKILL);
  EXPECT_EQ(world.vmctl({"list"}).err, stale);
  EXPECT_THAT(world.vmctl({"doctor"}).out, HasSubstr("FAILED   vmagentd: it is not running"));
  EXPECT_THAT(world.log(), Not(HasSubstr("terminate")));
}

}  // namespace
}  // namespace host::fakes
