#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>

#include "sim/world/World.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

TEST(DaemonInAWorld, BecomesReadyOnAnEmptyDatabaseAndRests) {
  World world(1);
  world.startDaemon();
  ASSERT_TRUE(world.becomesReady()) << world.log();
  world.machine.scheduler.runUntil(world.machine.now() + 1s);
  const uint64_t calls = world.machine.gate.count();
  world.machine.scheduler.runUntil(world.machine.now() + 1h);
  EXPECT_EQ(world.machine.gate.count(), calls);
  EXPECT_FALSE(world.machine.verdict.failed()) << world.machine.verdict.text;
  EXPECT_TRUE(world.daemon());
}

TEST(DaemonInAWorld, EndsWhenItIsToldTo) {
  World world(1);
  Process& daemon = world.startDaemon();
  ASSERT_TRUE(world.becomesReady()) << world.log();
  int status = -1;
  world.machine.processes.ending.push_back([&](const Process& process, int waitStatus) {
    if (&process == &daemon) status = waitStatus;
  });
  world.machine.processes.signal(daemon, {SIGTERM, 0, 0});
  world.machine.scheduler.runUntil(world.machine.now() + 1s);
  EXPECT_EQ(status, W_EXITCODE(0, 0)) << world.log();
}

// What the killed one has held, its locks above all, is the next one's.
TEST(DaemonInAWorld, FollowsOneThatWasKilledWhereItStood) {
  World world(1);
  for (int i = 0; i < 20; ++i) {
    Process& daemon = world.startDaemon();
    world.machine.scheduler.runUntil(world.machine.now() + std::chrono::microseconds(20 * i));
    world.machine.processes.signal(daemon, {SIGKILL, 0, 0});
    EXPECT_FALSE(world.daemon());
  }
  world.startDaemon();
  EXPECT_TRUE(world.becomesReady()) << world.log();
}

TEST(DaemonInAWorld, RefusesToRunBesideAnother) {
  World world(1);
  world.startDaemon();
  ASSERT_TRUE(world.becomesReady());
  const auto first = world.daemon();
  world.startDaemon();
  world.machine.scheduler.runUntil(world.machine.now() + 1s);
  EXPECT_FALSE(world.daemon());
  EXPECT_NE(
      world.log().find("another daemon runs already (process " + std::to_string(first->pid) + ")"),
      std::string::npos)
      << world.log();
  EXPECT_TRUE(first->lives());
}

}  // namespace
}  // namespace sim
