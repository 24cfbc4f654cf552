// No start without a disk image that is fit for it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/fakes/SupervisorWorld.h"

namespace host {
namespace {

using fakes::off;
using fakes::on;
using fakes::Row;
using fakes::SupervisorWorld;
using testing::ElementsAre;
using testing::IsEmpty;

class VmImageTest : public testing::Test {
 protected:
  void imageIs(const char* path, bool there) {
    if (there)
      world.images.missing.erase(path);
    else
      world.images.missing.insert(path);
  }

  SupervisorWorld world;
};

constexpr const char* missing =
    "image: diskImage: '/images/web.iso' is refused: must be a file that is there";

TEST_F(VmImageTest, ThatWasRefusedIsNoProblemOfTheVmThatComesNext) {
  imageIs("/images/web.iso", false);
  world.rowIs("web1", on);
  ASSERT_EQ(world.problem("web1"), missing);
  world.images.unseen.insert("/images/new.iso");
  world.apply({world.putNew("web1", Row{.diskImage = "/images/new.iso"}.doc())});
  world.settle();
  EXPECT_EQ(world.problem("web1"), "");
}

// Each road to a start.

TEST_F(VmImageTest, ThatIsRefusedKeepsAVmFromBeingSwitchedOn) {
  imageIs("/images/web.iso", false);
  world.rowIs("web1", on);
  world.advance(600);
  EXPECT_THAT(world.fortune.take(), IsEmpty());
  EXPECT_EQ(world.problem("web1"), missing);
}

TEST_F(VmImageTest, ThatIsRefusedKeepsAFailedStartFromBeingTriedAgain) {
  world.fortune.startFails = {"web1"};
  world.rowIs("web1", on);
  world.fortune.take();
  imageIs("/images/web.iso", false);
  world.fortune.startFails = {};
  world.advance(600);
  EXPECT_THAT(world.fortune.take(), IsEmpty());
  EXPECT_EQ(world.problem("web1"), missing);
}

TEST_F(VmImageTest, ThatIsRefusedKeepsAVmFromBeingRestarted) {
  world.rowIs("web1", on);
  imageIs("/images/web.iso", false);
  world.restartIs("web1", 1);
  world.end("web1");
  world.fortune.take();
  world.advance(600);
  EXPECT_THAT(world.fortune.take(), IsEmpty());
  EXPECT_EQ(world.problem("web1"), missing);
}

TEST_F(VmImageTest, ThatIsRefusedIsNotGivenToAVmThatIsOnAndWasNotStarted) {
  world.fortune.startFails = {"web1"};
  world.apply({world.put("web1", on.doc())});
  while (world.fortune.effects.empty()) world.supervisor->pass();
  world.fortune = {};
  imageIs("/images/other.iso", false);
  // The agent would start it by itself.
  world.rowIs("web1", {.diskImage = "/images/other.iso"});
  world.advance(600);
  EXPECT_THAT(world.fortune.take(), IsEmpty());
  imageIs("/images/other.iso", true);
  world.advance(60);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
}

TEST_F(VmImageTest, ThatIsRefusedHarmsNoGuestThatRuns) {
  world.rowIs("web1", on);
  imageIs("/images/web.iso", false);
  imageIs("/images/other.iso", false);
  world.rowIs("web1", {.diskImage = "/images/other.iso", .memory = 512});
  world.advance(600);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
  EXPECT_EQ(world.config->vmConfig("web1")->memory(), 512U);
}

TEST_F(VmImageTest, ThatIsFitAgainIsStartedFromAtOnceWhenThatIsAskedFor) {
  imageIs("/images/web.iso", false);
  world.rowIs("web1", on);
  world.advance(100);
  imageIs("/images/web.iso", true);
  world.restartIs("web1", 1);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
  EXPECT_EQ(world.problem("web1"), "");
}

TEST_F(VmImageTest, ThatIsRefusedIsAProblemUntilTheVmIsSwitchedOff) {
  imageIs("/images/web.iso", false);
  world.rowIs("web1", on);
  world.rowIs("web1", off);
  EXPECT_EQ(world.problem("web1"), "");
}

// Looks that take a while.

TEST_F(VmImageTest, ThatNobodyHasSeenYetHoldsUpItsVmOnly) {
  world.images.unseen = {"/images/far.iso"};
  world.rowIs("far", {.diskImage = "/images/far.iso"});
  world.rowIs("web1", on);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
  EXPECT_EQ(world.clock->nextWakeUpTime(), rt::Seconds::infinity()) << "it is told";
}

TEST_F(VmImageTest, ThatIsSeenIsStartedFromAtOnce) {
  world.images.unseen = {"/images/web.iso"};
  world.rowIs("web1", on);
  world.images.unseen = {};
  world.supervisor->imageIsKnown("web1");
  world.settle();
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
}

TEST_F(VmImageTest, ThatIsSeenDuringALaterTryIsStartedFromAtOnce) {
  world.fortune.startFails = {"web1"};
  world.rowIs("web1", on);
  world.images.unseen = {"/images/web.iso"};
  world.advance(30);
  world.fortune = {};
  world.images.unseen = {};
  world.supervisor->imageIsKnown("web1");
  world.settle();
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
}

TEST_F(VmImageTest, ThatIsSeenAfterAllIsStartedFromBeforeTheNextTryIsDue) {
  imageIs("/images/web.iso", false);
  world.rowIs("web1", on);
  world.advance(100);
  imageIs("/images/web.iso", true);
  world.supervisor->imageIsKnown("web1");
  world.settle();
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
}

TEST_F(VmImageTest, ThatIsSeenTooLateIsStartedFromNoMore) {
  world.images.unseen = {"/images/web.iso"};
  world.rowIs("web1", on);
  world.rowIs("web1", off);
  world.images.unseen = {};
  world.supervisor->imageIsKnown("web1");
  world.settle();
  EXPECT_THAT(world.fortune.take(), IsEmpty());
}

TEST_F(VmImageTest, OfANewRowIsWaitedForWhateverElseChanges) {
  world.images.unseen = {"/images/web.iso"};
  world.rowIs("web1", on);
  world.rowIs("web1", {.memory = 512});
  EXPECT_THAT(world.fortune.take(), IsEmpty());
  world.images.unseen = {};
  world.supervisor->imageIsKnown("web1");
  world.settle();
  EXPECT_EQ(world.config->vmConfig("web1")->memory(), 512U);
  EXPECT_TRUE(world.config->vmConfig("web1")->enabled());
}

// What is asked, and told.

TEST_F(VmImageTest, IsJudgedBeforeEachStartAndNoMore) {
  world.rowIs("web1", on);
  world.rowIs("web1", {.memory = 512});
  world.advance(100);
  ASSERT_EQ(world.images.questions.size(), 1U);
  EXPECT_EQ(world.images.questions[0].vm, "web1");
  EXPECT_EQ(world.images.questions[0].path, "/images/web.iso");
  world.restartIs("web1", 1);
  world.end("web1");
  EXPECT_EQ(world.images.questions.size(), 2U);
}

TEST_F(VmImageTest, IsJudgedAsThatOfAGuestThatIsTakenUpOnlyThen) {
  world.supervisor->adoptableIs("web1", true);
  world.rowIs("web1", on);
  EXPECT_TRUE(world.images.questions.back().takesUp);
  world.restartIs("web1", 1);
  world.end("web1");
  EXPECT_FALSE(world.images.questions.back().takesUp);
}

TEST_F(VmImageTest, IsToldToTheStartWithItsFormat) {
  rt::String format;
  world.aroundStart.preparing = [&](const VmStart& start) { format = start.imageFormat; };
  world.rowIs("web1", on);
  EXPECT_EQ(format, "qcow2");
}

TEST_F(VmImageTest, ThatIsOddIsSaidToBeSoWhileTheVmIsOn) {
  world.images.note = "it begins as another format does";
  world.rowIs("web1", on);
  EXPECT_EQ(world.problem("web1"), "format: it begins as another format does");
  world.rowIs("web1", off);
  EXPECT_EQ(world.problem("web1"), "");
}

TEST_F(VmImageTest, IsHeldUntilTheVmIsOffAndItsProcessIsGone) {
  world.rowIs("web1", on);
  world.end("web1");
  EXPECT_TRUE(world.images.held.contains("web1")) << "it is to be on, and may be restarted";
  world.restartIs("web1", 1);
  world.rowIs("web1", off);
  EXPECT_TRUE(world.images.held.contains("web1")) << "its process is there";
  world.end("web1");
  EXPECT_FALSE(world.images.held.contains("web1"));
}

TEST_F(VmImageTest, IsHeldNoMoreByAVmThatIsGone) {
  world.rowIs("web1", on);
  world.rowDel("web1");
  EXPECT_TRUE(world.images.held.contains("web1"));
  world.end("web1");
  EXPECT_FALSE(world.images.held.contains("web1"));
}

// What is told of a guest that runs.

TEST_F(VmImageTest, ThatIsToBeOpenedOtherwiseIsToldUntilItsGuestIsRestarted) {
  world.rowIs("web1", on);  // as qcow2
  EXPECT_EQ(world.problem("web1"), "");
  world.images.formats["web1"] = "raw";
  world.supervisor->imageIsKnown("web1");
  world.advance(0);
  EXPECT_EQ(
      world.problem("web1"),
      "restart: format: changed since the guest was started; 'vmctl restart web1' applies it");
  world.images.formats["web1"] = "qcow2";
  world.supervisor->imageIsKnown("web1");
  world.advance(0);
  EXPECT_EQ(world.problem("web1"), "");
}

}  // namespace
}  // namespace host
