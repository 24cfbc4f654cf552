// What goes wrong in the midst of a start, and that nobody else waits for it: the agent finds
// somebody at the monitor's path the first time it looks, and who is gone by then has hung up.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "guest/VmFiles.h"
#include "shim/fakes/ShimProcess.h"
#include "tests/system/FaultWorld.h"

namespace host::fakes {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;

class StartingGuest : public testing::Test {
 protected:
  void start(const std::vector<std::string>& more = {}) {
    std::vector<std::string> words = {"--trace", "1,8"};
    words.insert(words.end(), more.begin(), more.end());
    world.start(words);
  }
  // In the shim's place.
  std::string program(const std::string& text) const {
    const std::string path = "/var/run/own-shim";
    std::ofstream(path) << text;
    fs::permissions(path, fs::perms(0755));
    return path;
  }
  // After a first look in vain there is a pause; without one none takes as long.
  void expectNoPause() const {
    const auto all = world.looks();
    EXPECT_FALSE(all.empty());
    for (const double seconds : all) EXPECT_LT(seconds, FaultWorld::pause);
  }
  // Whoever loses a connection looks once more.
  void expectFoundAtOnce(size_t guests) const {
    expectNoPause();
    EXPECT_EQ(world.looks().size(), guests) << world.log();
  }
  // Of what is left at the end, whatever went wrong.
  void expectNothingLeftOf(const std::string& vm, size_t descriptors) {
    world.ctl({"disable", vm, "--wait"});
    EXPECT_TRUE(world.settles({{vm, false}}));
    EXPECT_EQ(FaultWorld::descriptors(world.daemon()), descriptors);
  }
  bool isTold(const std::string& vm, const std::string& problem) const {
    return waitUntil([&] { return world.shownProblem(vm).find(problem) != std::string::npos; },
                     FaultWorld::truth);
  }

  FaultWorld world;
};

TEST_F(StartingGuest, IsFoundTheFirstTimeAndSoIsOneThatIsTakenUp) {
  start();
  std::vector<std::string> ten;
  for (int i = 0; i < 10; ++i) ten.push_back("web" + std::to_string(i));
  ASSERT_NO_FATAL_FAILURE(world.runGuests(ten));
  expectFoundAtOnce(ten.size());
  std::vector<Expected> all;
  for (const auto& vm : ten) all.push_back({vm, true, world.qemu(vm)});
  world.end(SIGKILL);
  start();
  EXPECT_TRUE(world.settles(all, 2 * FaultWorld::truth));
  expectFoundAtOnce(ten.size());
}

TEST_F(StartingGuest, WhoseShimCannotBeExecutedKeepsNobodyWaiting) {
  const std::string shim = program("#!/no/interpreter\n");
  start({"--shim", shim});
  const size_t before = FaultWorld::descriptors(world.daemon());
  ASSERT_EQ(world.addGuest("web1").status, 0);
  EXPECT_TRUE(isTold("web1", "could not be executed (exit status 127)"))
      << world.ctl({"show", "web1"});
  expectNoPause();
  expectNothingLeftOf("web1", before);
}

TEST_F(StartingGuest, WhoseShimIsKilledAtOnceKeepsNobodyWaiting) {
  start({"--shim", program("#!/bin/sh\nkill -KILL $$\n")});
  const size_t before = FaultWorld::descriptors(world.daemon());
  ASSERT_EQ(world.addGuest("web1").status, 0);
  EXPECT_TRUE(isTold("web1", "signal 9")) << world.ctl({"show", "web1"});
  expectNoPause();
  expectNothingLeftOf("web1", before);
}

TEST_F(StartingGuest, HasADirectoryInPlaceOfItsMonitorUntilItIsRemoved) {
  const std::string monitor = guest::monitorOf("web1");
  fs::create_directory(monitor);
  start();
  ASSERT_EQ(world.addGuest("web1").status, 0);
  EXPECT_TRUE(isTold("web1", "the monitor's socket " + monitor + " cannot be made: a directory"))
      << world.ctl({"show", "web1"});
  ASSERT_NO_FATAL_FAILURE(world.runGuests({"web2"}));
  const Expected other{"web2", true, world.qemu("web2")};
  fs::remove(monitor);
  EXPECT_TRUE(world.settles({{"web1"}, other}, 2 * FaultWorld::truth));
  EXPECT_EQ(world.shownProblem("web1"), "");
}

TEST_F(StartingGuest, OfADaemonThatWasKilledBeforeItsForkIsStartedByTheNext) {
  fs::remove(guest::startingMonitor);
  (void)shim::fakes::listenerAt(guest::startingMonitor);  // whose process is gone
  start();
  EXPECT_TRUE(world.settles({})) << "it is left though nothing is started";
  (void)shim::fakes::listenerAt(guest::startingMonitor);
  ASSERT_NO_FATAL_FAILURE(world.runGuests({"web1"}));
  EXPECT_TRUE(world.settles({{"web1"}}));
  expectFoundAtOnce(1);
}

}  // namespace
}  // namespace host::fakes
