#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "sim/world/World.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

class GuestInAWorld : public testing::Test {
 protected:
  GuestInAWorld() {
    world.startDaemon();
    EXPECT_TRUE(world.becomesReady()) << world.log();
    world.person.begin(world.machine);
  }
  ~GuestInAWorld() override {
    const Verdict& verdict = world.machine.verdict;
    EXPECT_FALSE(verdict.failed()) << verdict.clause << ": " << verdict.text;
  }

  bool shows(const std::string& table, const std::string& part) {
    return world.person.row(table, "web1").value_or("").find(part) != std::string::npos;
  }
  const Qemu* qemu() {
    const auto found = world.qemus.of("web1");
    return found.size() == 1 ? found.front() : nullptr;
  }
  bool runs() { return qemu() && qemu()->guestRuns() && shows("vmStatus", R"("Running")"); }
  void add(const std::string& more = "") {
    EXPECT_EQ(world.addVm("web1", more), "");
    ASSERT_TRUE(world.until([this] { return runs(); }, 20s)) << world.log();
  }
  void addWithCard() {
    world.plug("Ethernet1");
    add(R"(,"vnicConfig":{"nic0":{"model":"e1000","macAddr":"52:54:00:00:00:01",)"
        R"("intfName":"Ethernet1"}})");
  }
  void disable() {
    EXPECT_EQ(world.person.put(
                  "vmConfig", "web1",
                  R"({"enabled":false,"diskImage":")" + qemu()->image() + R"(","memory":64})"),
              "");
  }
  void killDaemon() { world.machine.processes.signal(*world.daemon(), {SIGKILL, 0, 0}); }
  bool isConnected() { return qemu() && qemu()->devices().isConnected("net0"); }

  World world{1};
};

TEST_F(GuestInAWorld, RunsWhenItIsEnabled) {
  add();
  EXPECT_TRUE(shows("vmProcess", R"("process":"running")"));
  EXPECT_FALSE(world.person.row("vmProblem", "web1"));
}

TEST_F(GuestInAWorld, IsAskedForItsStateOnlyWhileNothingHappens) {
  add();
  const auto before = world.person.rows({"vmStatus", "vmProcess", "vmProblem"});
  const size_t asked = qemu()->asked().size();
  world.pass(60s);
  EXPECT_EQ(world.person.rows({"vmStatus", "vmProcess", "vmProblem"}), before);
  EXPECT_EQ(qemu()->asked().size(), asked + 12);
  EXPECT_THAT(qemu()->asked().back(), testing::HasSubstr("query-status"));
}

TEST_F(GuestInAWorld, ShutsItselfDownWhenItIsDisabled) {
  add();
  disable();
  ASSERT_TRUE(world.until([this] { return world.qemus.all().empty(); }, 5s));
  world.pass(1s);
  EXPECT_FALSE(shows("vmStatus", R"("enabled":true)"));
  EXPECT_FALSE(world.machine.files.at("/var/run/web1.monitor"));
}

TEST_F(GuestInAWorld, ThatTakesNoNoticeIsEndedAllTheSame) {
  world.qemus.mannerOf = [](const std::string&) {
    QemuManner manner;
    manner.untilPowerOff.reset();
    return manner;
  };
  add();
  const Time before = world.machine.now();
  disable();
  ASSERT_TRUE(world.until([this] { return world.qemus.all().empty(); }, 30s));
  EXPECT_GT(world.machine.now() - before, 14s);
}

TEST_F(GuestInAWorld, GoesOnWhileItsDaemonIsGoneAndIsTakenUpByTheNext) {
  addWithCard();
  ASSERT_TRUE(isConnected());
  const Qemu* const before = qemu();
  killDaemon();
  world.pass(30s);
  EXPECT_EQ(qemu(), before);
  world.startDaemon();
  ASSERT_TRUE(world.becomesReady()) << world.log();
  world.pass(10s);
  EXPECT_EQ(qemu(), before) << world.log();
  EXPECT_TRUE(runs());
  EXPECT_TRUE(isConnected());
}

TEST_F(GuestInAWorld, LosesAndRegainsItsCardWithItsInterface) {
  addWithCard();
  ASSERT_TRUE(isConnected());
  world.unplug("Ethernet1");
  world.pass(1s);
  EXPECT_FALSE(isConnected());
  world.plug("Ethernet1");
  EXPECT_TRUE(world.until([this] { return isConnected(); }, 10s)) << world.log();
}

TEST_F(GuestInAWorld, WhoseShimIsKilledLosesItsQemu) {
  add();
  for (const auto& [pid, process] : world.machine.processes.all())
    if (process->programPath == shimPath || process->programPath == "/usr/bin/qemu-system-x86_64") {
      world.machine.processes.signal(*process, {SIGKILL, 0, 0});
      break;
    }
  world.pass(1s);
  EXPECT_TRUE(world.qemus.all().empty());
  EXPECT_TRUE(shows("vmProblem", "ended by signal 9"));
}

}  // namespace
}  // namespace sim
