// Those who want to see the guest's screen.
#include <gmock/gmock.h>

#include "shim/fakes/RelayWorld.h"

namespace shim {
namespace {

using fakes::Probe;
using fakes::queryStatus;
using fakes::RelayWorld;
using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class RelayScreen : public testing::Test {
 protected:
  RelayScreen() { world.begin(); }

  RelayWorld world;
  Probe viewer;
};

TEST_F(RelayScreen, IsShownByQemuToWhoeverComes) {
  world.addViewer(std::move(viewer.given));
  EXPECT_THAT(world.qemu.viewers(), SizeIs(1));
  EXPECT_FALSE(viewer.isClosed());
  Probe other;
  world.addViewer(std::move(other.given));
  EXPECT_THAT(world.qemu.viewers(), SizeIs(2));
  EXPECT_EQ(world.qemu.descriptorsHeld(), 0U);
  EXPECT_THAT(world.heard(), IsEmpty()) << "the agent is not told";
  EXPECT_THAT(world.log, IsEmpty());
}

TEST_F(RelayScreen, IsShownWithoutAnAgent) {
  world.disconnectAgent();
  world.addViewer(std::move(viewer.given));
  EXPECT_THAT(world.qemu.viewers(), SizeIs(1));
}

TEST_F(RelayScreen, IsNotShownToOneMoreThanMay) {
  for (size_t i = 0; i < ScreenDoor::mostViewers; ++i) world.addViewer(Probe().given);
  ASSERT_THAT(world.qemu.viewers(), SizeIs(ScreenDoor::mostViewers));
  world.addViewer(std::move(viewer.given));
  EXPECT_TRUE(viewer.isClosed());
  EXPECT_THAT(world.qemu.viewers(), SizeIs(ScreenDoor::mostViewers));
  EXPECT_THAT(world.log,
              ElementsAre("refused one more to look at the guest's screen, which has 16 viewers"));
  world.qemu.viewers().pop_back();
  Probe next;
  world.addViewer(std::move(next.given));
  EXPECT_FALSE(next.isClosed());
}

TEST_F(RelayScreen, HasOneAtItsDoorAndOthersWaitOutside) {
  world.qemu.stop();
  EXPECT_TRUE(world.relay.takesViewer());
  world.addViewer(std::move(viewer.given));
  EXPECT_FALSE(world.relay.takesViewer());
  world.qemuGoes();
  EXPECT_TRUE(world.relay.takesViewer());
  EXPECT_THAT(world.qemu.viewers(), SizeIs(1));
}

TEST_F(RelayScreen, IsNotShownForAQemuThatSaysNothingForTenSeconds) {
  world.qemu.stop();
  EXPECT_EQ(world.relay.deadline(), std::nullopt);
  world.addViewer(std::move(viewer.given));
  EXPECT_EQ(world.relay.deadline(), world.now + seconds(10));
  world.pass(milliseconds(9'999));
  EXPECT_FALSE(viewer.isClosed());
  world.pass(milliseconds(1));
  EXPECT_TRUE(viewer.isClosed());
  EXPECT_TRUE(world.relay.takesViewer());
  EXPECT_THAT(world.log,
              ElementsAre("QEMU does not answer for one who wants to see the guest's screen"));
  world.qemuGoes();
  EXPECT_THAT(world.qemu.viewers(), IsEmpty()) << "nothing is left of the question";
  Probe next;
  world.addViewer(std::move(next.given));
  EXPECT_THAT(world.qemu.viewers(), SizeIs(1));
}

TEST_F(RelayScreen, IsNotShownByAQemuThatRefuses) {
  for (const char* request : {"query-vnc-servers", "add_client"}) {
    Probe refused;
    world.qemu.refusalIs(request, "no screen");
    world.addViewer(std::move(refused.given));
    EXPECT_THAT(world.log, testing::Contains("QEMU does not show the guest's screen: no screen"));
    EXPECT_TRUE(world.relay.takesViewer()) << request;
    world.log.clear();
  }
  EXPECT_THAT(world.qemu.viewers(), IsEmpty());
  world.addViewer(std::move(viewer.given));
  EXPECT_THAT(world.qemu.viewers(), SizeIs(1));
  EXPECT_EQ(world.qemu.descriptorsHeld(), 0U) << "the refused one's place was taken";
}

TEST_F(RelayScreen, TakesNoAnswerOfTheAgentsAndGivesItNone) {
  world.qemu.stop();
  EXPECT_THAT(world.ask(queryStatus), IsEmpty());
  world.addViewer(std::move(viewer.given));
  world.qemuGoes();
  EXPECT_THAT(world.heard(), ElementsAre(HasSubstr(R"("running": true}, "id": "status")")));
  EXPECT_THAT(world.qemu.viewers(), SizeIs(1));
}

TEST(RelayScreenBefore, QemuIsReadyIsShownToNobody) {
  RelayWorld world;
  EXPECT_FALSE(world.relay.takesViewer());
}

}  // namespace
}  // namespace shim
