// No start without room for it on the machine.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/fakes/SupervisorWorld.h"

namespace host {
namespace {

using fakes::Row;
using fakes::SupervisorWorld;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* full = "358 MiB would leave 5 MiB; the reserve is 100";

class VmRoomTest : public testing::Test {
 protected:
  void fill() { world.budget.refusals["web1"] = full; }
  void leave() { world.budget.refusals.clear(); }
  std::string shown(const char* what) {
    const auto record = world.hostStatus->vmProcess("web1");
    return record->type().find(what)->text(*record).str();
  }

  SupervisorWorld world;
};

TEST_F(VmRoomTest, ThatIsNotThereKeepsAVmFromBeingStarted) {
  fill();
  world.rowIs("web1", {});
  world.advance(600);
  EXPECT_THAT(world.fortune.take(), IsEmpty());
  EXPECT_EQ(world.problem("web1"), "memory: " + std::string(full));
  EXPECT_EQ(shown("actual"), "refused");
}

TEST_F(VmRoomTest, ThatIsNotThereIsToldOnceHoweverOftenItIsTried) {
  fill();
  world.rowIs("web1", {});
  for (int i = 0; i < 20; ++i) {
    world.images.unseen.insert("/images/web.iso");
    world.advance(30);
    world.images.unseen.clear();
    world.supervisor->imageIsKnown("web1");
    world.settle();
  }
  EXPECT_THAT(world.told, ElementsAre("state starting", "state refused"));
  EXPECT_EQ(shown("why"), std::string(full));
}

TEST_F(VmRoomTest, ThatHasComeIsTakenAtOnce) {
  fill();
  world.rowIs("web1", {});
  leave();
  world.supervisor->imageIsKnown("web1");
  world.settle();
  EXPECT_EQ(world.process("web1"), "running 100");
  EXPECT_EQ(world.problem("web1"), "");
}

TEST_F(VmRoomTest, ThatNobodyToldOfIsTakenWithinAMinute) {
  fill();
  world.rowIs("web1", {});
  world.advance(300);
  leave();
  world.advance(60);
  EXPECT_EQ(world.process("web1"), "running 100");
}

TEST_F(VmRoomTest, IsAskedForWithTheMemoryAsItIsNow) {
  world.rowIs("web1", {.memory = 512});
  EXPECT_EQ(world.budget.kept["web1"], 512U);
}

TEST_F(VmRoomTest, IsWhereItsGuestIsBorn) {
  std::vector<std::string> groups;
  world.aroundStart.preparing = [&](const VmStart& start) { groups.push_back(start.group.str()); };
  world.rowIs("web1", {});
  EXPECT_THAT(groups, ElementsAre("/groups/web1"));
}

TEST_F(VmRoomTest, IsGivenBackWhenTheGuestHasEnded) {
  world.rowIs("web1", {});
  EXPECT_THAT(world.budget.endings, IsEmpty());
  world.end("web1");
  EXPECT_THAT(world.budget.endings, ElementsAre("web1"));
}

TEST_F(VmRoomTest, IsGivenBackWhenNoGuestWasBorn) {
  world.fortune.startFails = {"web1"};
  world.rowIs("web1", {});
  EXPECT_THAT(world.budget.endings, testing::Contains(rt::String("web1")));
  EXPECT_FALSE(world.budget.kept.contains("web1"));
}

TEST_F(VmRoomTest, IsNotAskedForByAGuestThatIsTakenUp) {
  fill();
  world.supervisor->adoptableIs("web1", true);
  world.rowIs("web1", {});
  EXPECT_EQ(world.process("web1"), "running 100");
}

TEST_F(VmRoomTest, IsNoProblemOfAVmThatIsOff) {
  fill();
  world.rowIs("web1", {});
  world.rowIs("web1", {.enabled = false});
  EXPECT_EQ(world.problem("web1"), "");
}

TEST_F(VmRoomTest, ThatIsNotThereAnyMoreKeepsARestartFromBeingOne) {
  world.rowIs("web1", {});
  fill();
  world.restartIs("web1", 1);
  world.end("web1");
  world.fortune.take();
  world.advance(600);
  EXPECT_THAT(world.fortune.take(), IsEmpty());
  EXPECT_EQ(world.problem("web1"), "memory: " + std::string(full));
}

}  // namespace
}  // namespace host
