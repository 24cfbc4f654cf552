#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/world/Command.h"
#include "sim/world/World.h"

namespace sim {
namespace {

using namespace std::chrono_literals;

class CommandInAWorld : public testing::Test {
 protected:
  CommandInAWorld() {
    world.startDaemon();
    EXPECT_TRUE(world.becomesReady()) << world.log();
  }
  CommandEnd vmctl(std::vector<std::string> words) {
    words.insert(words.begin(), "vmctl");
    return runCommand(world.machine, commandPath, words, 100s);
  }

  World world{1};
};

TEST_F(CommandInAWorld, AddsAMachineAndShowsThatItRuns) {
  world.machine.files.fileAt("/images/a.img", std::string(65536, '\0'));
  const CommandEnd added = vmctl({"add", "a", "--disk", "/images/a.img", "--enabled"});
  EXPECT_EQ(added.status(), 0) << added.output;
  const CommandEnd waited = vmctl({"wait", "a", "--for", "state=Running"});
  EXPECT_EQ(waited.status(), 0) << waited.output << world.log();
  EXPECT_THAT(vmctl({"list"}).output, testing::HasSubstr("a     running  running"));
}

TEST_F(CommandInAWorld, RefusesWhatIsWrong) {
  const CommandEnd end = vmctl({"enable", "nobody"});
  EXPECT_EQ(end.status(), 3);
  EXPECT_THAT(end.output, testing::HasSubstr("nobody"));
}

TEST_F(CommandInAWorld, IsKilledWhenItsTimeIsOver) {
  const CommandEnd end = runCommand(world.machine, commandPath, {"vmctl", "watch"}, 5s);
  EXPECT_FALSE(end.inTime);
  EXPECT_EQ(end.status(), -1);
  world.pass(1s);
  EXPECT_FALSE(world.machine.verdict.failed()) << world.machine.verdict.text;
}

}  // namespace
}  // namespace sim
