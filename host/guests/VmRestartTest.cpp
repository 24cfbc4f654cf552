// Restarts, and what is tried again.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "guest/EventWords.h"
#include "host/fakes/SupervisorWorld.h"
#include "runtime/fakes/TraceRecorder.h"

namespace host {
namespace {

using fakes::off;
using fakes::on;
using fakes::Row;
using fakes::SupervisorWorld;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

uint64_t restartsOf(const SupervisorWorld& world, const char* vm) {
  const auto record = world.hostStatus->vmProcess(vm);
  return record ? record->restarts() : 0;
}

// What is shown of one.

// The shim of the VM tells that its guest was let run.
void tellThatItRuns(SupervisorWorld& world) {
  uint64_t number = 0;
  for (const auto kind : {guest::event::started, guest::event::resumed}) {
    const auto event = rt::make<GuestEvent>("web1");
    event->runIs(7);
    event->nIs(++number);
    event->upIs(number);
    event->kindIs(rt::String(kind));
    world.states->eventIs(*event);
  }
}

TEST(VmShown, IsAsItWasWhileItsGuestWaitsToBeTakenUp) {
  SupervisorWorld world;
  tellThatItRuns(world);
  world.images.unseen.insert("/images/web.iso");
  world.supervisor->adoptableIs("web1", true);
  world.rowIs("web1", on);
  EXPECT_THAT(world.fortune.take(), IsEmpty()) << "its image is looked at";
  EXPECT_EQ(world.hostStatus->vmProcess("web1")->actual(), "running");
  EXPECT_EQ(world.hostStatus->vmProcess("web1")->endCause(), "");
}

TEST(VmShown, HasNotEndedWhoseGuestWaitsForItsRow) {
  SupervisorWorld world;
  tellThatItRuns(world);
  world.waiting.waits("web1", 0);
  world.apply({world.put("web1", R"({"enabled":true,"memory":"much"})")});
  world.settle();
  EXPECT_EQ(world.hostStatus->vmProcess("web1")->endCause(), "");
}

TEST(VmShown, HasNoEndOfTheVmThatHadItsName) {
  SupervisorWorld world;
  tellThatItRuns(world);
  world.rowIs("web1", off);
  EXPECT_EQ(world.hostStatus->vmProcess("web1")->endCause(), "shim-lost");
  world.rowDel("web1");
  world.rowIs("web1", off);
  EXPECT_EQ(world.hostStatus->vmProcess("web1")->endCause(), "");
}

TEST(VmShown, IsRefusedWhereItsRowCannotBeTaken) {
  SupervisorWorld world;
  world.apply({world.put("web1", R"({"enabled":true,"memory":"much"})")});
  world.settle();
  EXPECT_EQ(world.hostStatus->vmProcess("web1")->actual(), "refused");
  EXPECT_EQ(world.hostStatus->vmProcess("web1")->wanted(), "unknown");
}

TEST(VmShown, IsRetryingWhereTheAgentCannotStartIt) {
  SupervisorWorld world;
  world.fortune.startFails.insert("web1");
  world.rowIs("web1", on);
  const auto record = world.hostStatus->vmProcess("web1");
  EXPECT_EQ(record->actual(), "retrying");
  EXPECT_EQ(record->nextAt(), 1001U);
  EXPECT_EQ(record->attempt(), 1U);
  world.advance(1);
  EXPECT_EQ(record->attempt(), 2U);
  EXPECT_EQ(record->nextAt(), 1003U);
}

TEST(VmShown, IsStoppingUntilItsGuestHasEnded) {
  SupervisorWorld world({}, rt::Seconds(15) + shimsOwn);
  world.rowIs("web1", on);
  world.rowIs("web1", off);
  const auto record = world.hostStatus->vmProcess("web1");
  EXPECT_EQ(record->actual(), "stopping");
  EXPECT_EQ(record->nextAt(), 1015U);
  world.end("web1");
  EXPECT_EQ(record->actual(), "stopped");
}

TEST(VmShown, IsGoneOnceItsRowWasRemovedAndItsGuestGoesOn) {
  SupervisorWorld world;
  world.rowIs("web1", on);
  world.rowDel("web1");
  EXPECT_EQ(world.hostStatus->vmProcess("web1")->wanted(), "gone");
  world.end("web1");
  EXPECT_EQ(world.hostStatus->vmProcess("web1"), nullptr);
}

// Restarts that are asked for.

TEST(VmRestart, IsOffWaitOn) {
  SupervisorWorld world;
  world.rowIs("web1", on);
  world.restartIs("web1", 1);
  world.advance(600);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1", "kill web1"));
  EXPECT_EQ(world.process("web1"), "ending 100");
  EXPECT_EQ(restartsOf(world, "web1"), 0U) << "not yet";
  world.end("web1");
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
  EXPECT_EQ(world.process("web1"), "running 101");
  EXPECT_EQ(restartsOf(world, "web1"), 1U);
}

TEST(VmRestart, ThatWasAskedWhileAVmWasGoneIsPastForTheNextOfItsName) {
  SupervisorWorld world({{"web1", 3}});
  world.restartIs("web1", 3);
  world.rowIs("web1", off);
  world.rowDel("web1");
  world.restartIs("web1", 7);
  world.rowIs("web1", on);
  world.advance(60);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
  EXPECT_EQ(restartsOf(world, "web1"), 7U);
}

TEST(VmEnd, HasNoProblemOfWhatTheAgentDidNotFindOnTheWay) {
  SupervisorWorld world;
  world.fortune.complains.insert("web1");
  world.rowIs("web1", on);
  world.rowIs("web1", off);
  EXPECT_EQ(world.problem("web1"), "");
}

TEST(VmStart, IsPreparedEachTimeAndNothingElseIs) {
  SupervisorWorld world;
  std::vector<std::string> before;  // what had been done when a start was prepared
  world.aroundStart.preparing = [&](const VmStart& /*start*/) {
    before.push_back(testing::PrintToString(world.fortune.effects));
  };
  world.rowIs("web1", on);
  world.restartIs("web1", 1);
  world.end("web1");
  world.rowIs("web1", off);
  EXPECT_THAT(before, ElementsAre("{}", R"({ "start web1", "kill web1" })"));
}

TEST(VmStart, IsToldWhichVmAndWhichRowItIsOf) {
  SupervisorWorld world;
  VmStart told;
  world.aroundStart.preparing = [&](const VmStart& start) { told = start; };
  world.rowIs("web1", on);
  EXPECT_EQ(told.vm, "web1");
  EXPECT_EQ(told.row, world.rows.row("web1")->origin);
  EXPECT_GT(told.row.created, 0U);
}

TEST(VmStart, WaitsUntilItCanBePrepared) {
  SupervisorWorld world;
  world.supervisor->adoptableIs("web1", true);
  world.aroundStart.preparing = [](const VmStart& /*start*/) { throw rt::Exception("no mount"); };
  world.rowIs("web1", on);
  world.advance(10);
  EXPECT_THAT(world.fortune.take(), IsEmpty());
  world.aroundStart.preparing = [](const VmStart& /*start*/) {};
  world.advance(10);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1", "took up web1"));
}

TEST(VmStart, IsClearedUpAfterAlsoWhenTheAgentThrows) {
  SupervisorWorld world;
  world.rowIs("web1", on);
  EXPECT_FALSE(world.aroundStart.isPrepared);
  world.fortune.throws = {"web2"};
  world.rowIs("web2", on);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1", "start web2"));
  EXPECT_FALSE(world.aroundStart.isPrepared);
}

TEST(VmEnd, IsToldOnceWhateverItCameOf) {
  SupervisorWorld world;
  world.rowIs("web1", on);
  EXPECT_THAT(world.aroundStart.endings, IsEmpty());
  world.end("web1");
  EXPECT_THAT(world.aroundStart.endings, ElementsAre("web1"));
  world.restartIs("web1", 1);
  world.rowIs("web1", off);
  world.end("web1");
  EXPECT_THAT(world.aroundStart.endings, ElementsAre("web1", "web1"));
}

TEST(VmEnd, IsNoProblemOfTheVmThatComesNext) {
  SupervisorWorld world;
  world.rowIs("web1", on);
  world.shims.lastErrors["web1"] = "could not open disk image";
  world.end("web1");
  ASSERT_EQ(world.problem("web1"), "qemu: could not open disk image");
  world.apply({world.putNew("web1", off.doc())});
  world.settle();
  EXPECT_EQ(world.problem("web1"), "");
}

// Another process of that name is there still, which the agent knows nothing of.
TEST(VmEnd, IsToldOnlyOnceNoProcessIsLeft) {
  SupervisorWorld world;
  world.shims.deadSockets = {"web1"};
  world.rowIs("web1", on);
  world.supervisor->survivorsIs("web1", 1);
  world.end("web1");
  EXPECT_THAT(world.aroundStart.endings, IsEmpty());
  EXPECT_THAT(world.shims.deadSockets, ElementsAre("web1"));
}

TEST(VmEnd, RemovesTheSocketsThatItsShimLeft) {
  SupervisorWorld world;
  world.shims.deadSockets = {"web1", "web2"};
  world.rowIs("web1", on);
  EXPECT_THAT(world.shims.deadSockets, ElementsAre("web1", "web2"));
  world.end("web1");
  EXPECT_THAT(world.shims.deadSockets, ElementsAre("web2"));
}

TEST(VmTakeUp, EndsTheWaitOfTheGuestBeforeItsCardsAreSeenTo) {
  SupervisorWorld world;
  world.waiting.waits("web1", 1);
  world.waiting.waits("web2", 2);
  world.supervisor->adoptableIs("web1", true);
  world.cards.takingUp = [&](const rt::String& vm) { EXPECT_FALSE(world.waiting.isWaiting(vm)); };
  world.rowIs("web1", on);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1", "took up web1"));
  EXPECT_FALSE(world.waiting.isWaiting("web1"));
  EXPECT_TRUE(world.waiting.isWaiting("web2"));
}

TEST(VmTakeUp, IsToldJustAfterTheStartAndOnce) {
  SupervisorWorld world;
  world.supervisor->adoptableIs("web1", true);
  world.rowIs("web1", on);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1", "took up web1"));
  EXPECT_EQ(world.problem("web1"), "") << "what is said of it is no failure of the start";
  world.end("web1");
  world.restartIs("web1", 1);
  EXPECT_THAT(world.fortune.take(), testing::Not(testing::Contains("took up web1")));
}

TEST(VmTakeUp, IsNoneOfAGuestThatIsToEndAfterAll) {
  SupervisorWorld world;
  world.supervisor->adoptableIs("web1", true);
  world.supervisor->adoptableIs("web1", false);
  world.supervisor->survivorsIs("web1", 1);
  world.rowIs("web1", on);
  EXPECT_THAT(world.fortune.take(), IsEmpty()) << "it is still there";
  world.supervisor->survivorsIs("web1", 0);
  world.settle();
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
}

TEST(VmStop, AsksTheGuestFirstAndTakesItsCardsWhenItHasGone) {
  SupervisorWorld world({}, rt::Seconds(20));
  world.rowIs("web1", on);
  world.fortune.take();
  world.rowIs("web1", off);
  EXPECT_THAT(world.fortune.take(), ElementsAre("ask web1"));
  EXPECT_EQ(world.process("web1"), "ending 100");
  EXPECT_TRUE(world.config->vmConfig("web1")->enabled()) << "the agent is not told yet";
  world.end("web1");
  EXPECT_FALSE(world.config->vmConfig("web1")->enabled());
}

TEST(VmStop, OfAGuestThatIsBeingTakenUpWaitsUntilItHasSaidSomething) {
  SupervisorWorld world({}, rt::Seconds(20));
  world.supervisor->adoptableIs("web1", true);
  world.rowIs("web1", on);
  world.fortune.take();
  world.rowIs("web1", off);
  EXPECT_THAT(world.fortune.take(), IsEmpty());
  world.status->vmStatus("web1")->stateIs("Running");
  world.settle();
  EXPECT_THAT(world.fortune.take(), ElementsAre("ask web1"));
}

TEST(VmStop, DoesNotWaitForEver) {
  SupervisorWorld world({}, rt::Seconds(20));
  world.rowIs("web1", on);
  world.rowIs("web1", off);
  world.fortune.take();
  world.advance(20);
  EXPECT_THAT(world.fortune.take(), ElementsAre("kill web1"));
}

TEST(VmStop, OfAGuestWithoutAShimIsAtOnce) {
  SupervisorWorld world({}, rt::Seconds(20));
  world.shims.gone = {"web1"};
  world.rowIs("web1", on);
  world.fortune.take();
  world.rowIs("web1", off);
  EXPECT_THAT(world.fortune.take(), ElementsAre("ask web1", "kill web1"));
}

TEST(VmStop, IsOrderlyForAVmThatIsRemoved) {
  SupervisorWorld world({}, rt::Seconds(20));
  world.rowIs("web1", on);
  world.fortune.take();
  world.rowDel("web1");
  EXPECT_THAT(world.fortune.take(), ElementsAre("ask web1"));
  EXPECT_EQ(world.process("web1"), "ending 100") << "shown until it is gone";
  world.end("web1");
  EXPECT_FALSE(world.config->vmConfig("web1"));
  EXPECT_EQ(world.process("web1"), "");
}

TEST(VmEnd, IsExplainedByTheLastWordsOfItsQemuUntilTheNextStart) {
  SupervisorWorld world;
  world.rowIs("web1", on);
  world.shims.lastErrors["web1"] = "could not open disk image";
  world.end("web1");
  EXPECT_EQ(world.problem("web1"), "qemu: could not open disk image");
  world.restartIs("web1", 1);
  EXPECT_EQ(world.problem("web1"), "");
}

TEST(VmEnd, IsNotExplainedByTheLastWordsOfTheRunBefore) {
  SupervisorWorld world;
  world.shims.lastErrors["web1"] = "could not open disk image";
  world.rowIs("web1", on);
  world.fortune.processes.back()->exitSignalIs(9);
  world.end("web1");
  EXPECT_THAT(world.problem("web1"), StartsWith("qemu: ended by signal 9"));
}

TEST(VmEnd, ByASignalIsExplainedByTheSignalWhenThereAreNoLastWords) {
  SupervisorWorld world;
  world.rowIs("web1", on);
  world.fortune.processes.back()->exitSignalIs(9);
  world.end("web1");
  EXPECT_EQ(world.problem("web1"),
            "qemu: ended by signal 9, by whom is not known; 'vmctl restart web1' starts it anew");
}

// What the program that was to be its QEMU left, in words and by its exit status.
std::string problemOf(int exitStatus, const char* lastError, bool isOn = true) {
  SupervisorWorld world;
  world.rowIs("web1", on);
  world.fortune.processes.back()->exitStatusIs(exitStatus);
  world.shims.lastErrors["web1"] = lastError;
  if (!isOn) world.rowIs("web1", off);
  world.end("web1");
  return world.problem("web1");
}

TEST(VmEnd, OfAProgramThatCannotBeExecutedSaysWhatIsToBeDone) {
  EXPECT_EQ(problemOf(127, ""),
            "qemu: QEMU or its shim could not be executed (exit status 127): 'vmctl doctor' tells "
            "what is missing, and then 'vmctl restart web1' starts it anew");
  EXPECT_EQ(problemOf(127, "QEMU /usr/bin/qemu cannot be run: Permission denied"),
            "qemu: QEMU /usr/bin/qemu cannot be run: Permission denied");
}

TEST(VmEnd, WithoutAWordIsExplainedByItsExitStatusUnlessThatIsAsItShouldBe) {
  EXPECT_EQ(
      problemOf(1, ""),
      "qemu: ended with exit status 1, and said nothing; 'vmctl restart web1' starts it anew");
  EXPECT_EQ(problemOf(0, ""), "");
  EXPECT_EQ(problemOf(1, "", false), "");
}

TEST(VmEnd, BySignalOfAVmThatWasSwitchedOffIsNoProblem) {
  SupervisorWorld world;
  world.rowIs("web1", on);
  world.rowIs("web1", off);
  world.fortune.processes.back()->exitSignalIs(15);
  world.end("web1");
  EXPECT_EQ(world.problem("web1"), "");
}

TEST(VmEnd, OfAVmThatWasSwitchedOffIsNoProblem) {
  SupervisorWorld world;
  world.rowIs("web1", on);
  world.rowIs("web1", off);
  world.end("web1");
  EXPECT_EQ(world.problem("web1"), "");
}

TEST(VmRestart, BringsBackAGuestThatHasEnded) {
  SupervisorWorld world;
  world.rowIs("web1", on);
  world.end("web1");
  world.restartIs("web1", 1);
  EXPECT_EQ(world.process("web1"), "running 101");
}

// Who asked for it saw the guest ended, and it was started since.
TEST(VmRestart, OfAGuestThatHasEndedSparesOneThatRuns) {
  SupervisorWorld world;
  world.rowIs("web1", on);
  world.restartIs("web1", 1, true);
  world.advance(60);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
  EXPECT_EQ(restartsOf(world, "web1"), 1U);
  world.end("web1");
  world.restartIs("web1", 2, true);
  EXPECT_EQ(world.process("web1"), "running 101");
}

TEST(VmRestart, OfAGuestThatHasEndedSparesOneThatIsTakenUp) {
  SupervisorWorld world({{"web1", 7}});
  world.supervisor->adoptableIs("web1", true);
  world.restartIs("web1", 8, true);
  world.rowIs("web1", on);
  world.advance(60);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1")) << "by which it is taken up";
  EXPECT_EQ(restartsOf(world, "web1"), 8U);
}

TEST(VmRestart, OfAVmThatIsOffIsDoneAtOnceAndStartsNothing) {
  SupervisorWorld world;
  world.rowIs("web1", off);
  world.restartIs("web1", 4);
  EXPECT_THAT(world.fortune.take(), IsEmpty());
  EXPECT_EQ(restartsOf(world, "web1"), 4U);
}

TEST(VmRestart, ThatWasAskedForBeforeTheVmWasSeenIsPast) {
  SupervisorWorld world;
  world.supervisor->restartIs("web1", 7);
  world.rowIs("web1", on);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
  EXPECT_EQ(restartsOf(world, "web1"), 7U);
}

TEST(VmRestart, ThatAnEarlierDaemonDidIsNotDoneAgain) {
  SupervisorWorld world({{"web1", 7}});
  world.supervisor->restartIs("web1", 7);
  world.rowIs("web1", on);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
  world.restartIs("web1", 8);
  EXPECT_THAT(world.fortune.take(), ElementsAre("kill web1"));
}

TEST(VmRestart, ThatAnEarlierDaemonDidIsKnownAlsoWhenNobodyAsksAnyMore) {
  SupervisorWorld world({{"web1", 7}});
  world.rowIs("web1", on);
  EXPECT_EQ(restartsOf(world, "web1"), 7U);
}

TEST(VmRestart, ThatCameBeforeTheGuestsOfAnEarlierDaemonWereGoneIsNoSecondStart) {
  SupervisorWorld world({{"web1", 7}});
  world.supervisor->survivorsIs("web1", 1);
  world.supervisor->restartIs("web1", 8);
  world.rowIs("web1", on);
  world.supervisor->survivorsIs("web1", 0);
  world.settle();
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
  EXPECT_EQ(restartsOf(world, "web1"), 8U);
}

TEST(VmRestart, OfTheVmOfThatNameBeforeIsNothingToTheNewOne) {
  SupervisorWorld world;
  world.rowIs("web1", on);
  world.restartIs("web1", 3);
  world.end("web1");
  world.rowDel("web1");
  world.end("web1");
  world.fortune.take();
  world.rowIs("web1", on);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
}

TEST(VmRestart, IsNeededWhereFieldsDifferFromWhatTheGuestWasStartedWith) {
  SupervisorWorld world;
  world.rowIs("web1", on);
  EXPECT_EQ(world.problem("web1"), "");
  world.rowIs("web1", {.diskImage = "/images/other.iso", .memory = 512});
  EXPECT_EQ(world.problem("web1"),
            "restart: diskImage, memory: changed since the guest was started; 'vmctl restart web1' "
            "applies it");
  world.rowIs("web1", on);
  EXPECT_EQ(world.problem("web1"), "");
}

// Starts that fail.

class VmFailureTest : public testing::Test {
 protected:
  // When the VM's start was tried, in seconds from now on, for that long.
  std::vector<double> tries(double seconds) {
    std::vector<double> times;
    const double start = world.clock->now().value();
    while (world.clock->now().value() < start + seconds) {
      world.advance(0.5);
      for (const auto& effect : world.fortune.take())
        if (effect == "fail web1") times.push_back(world.clock->now().value() - start);
    }
    return times;
  }

  SupervisorWorld world;
};

TEST_F(VmFailureTest, IsTriedAgainMoreAndMorePatiently) {
  world.fortune.startFails = {"web1"};
  world.rowIs("web1", on);
  EXPECT_THAT(world.fortune.take(), ElementsAre("fail web1"));
  EXPECT_THAT(tries(190), ElementsAre(1, 3, 7, 15, 31, 63, 123, 183));
}

TEST_F(VmFailureTest, IsShownInTheAgentsWordsUntilTheNextGoodChange) {
  world.fortune.startFails = {"web1"};
  world.rowIs("web1", on);
  EXPECT_EQ(world.problem("web1"), "agent: FAIL: starting qemu failed");
  EXPECT_EQ(world.hostStatus->vmProblem("web1")->since(), 1000U);
  world.advance(10);
  EXPECT_EQ(world.hostStatus->vmProblem("web1")->since(), 1000U) << "it is still the same";
  world.fortune.startFails = {};
  world.advance(10);
  EXPECT_EQ(world.process("web1"), "running 100");
  EXPECT_EQ(world.problem("web1"), "");
}

TEST_F(VmFailureTest, IsTriedAgainAtOnceWhenTheConfigurationChanges) {
  world.fortune.startFails = {"web1"};
  world.rowIs("web1", on);
  tries(40);
  world.fortune.startFails = {};
  world.rowIs("web1", {.enabled = true, .memory = 128});
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
  EXPECT_EQ(world.config->vmConfig("web1")->memory(), 128U);
}

TEST_F(VmFailureTest, OfANewDiskImageIsShownAlsoWhenTheAgentTriedItByItself) {
  world.fortune.startFails = {"web1"};
  world.apply({world.put("web1", on.doc())});
  while (world.fortune.effects.empty()) world.supervisor->pass();
  world.fortune.startFails = {};
  world.apply({world.put("web1", Row{.diskImage = "/images/good.iso"}.doc())});
  world.settle();
  EXPECT_EQ(world.process("web1"), "running 100");
  world.rowIs("web1", {.diskImage = "/images/good.iso", .memory = 512});
  EXPECT_THAT(world.problem("web1"), HasSubstr("memory: changed since")) << "the start was seen";
}

TEST_F(VmFailureTest, OfOneVmKeepsNoOtherWaiting) {
  world.fortune.startFails = {"web1", "web2"};
  world.rowIs("web1", on);  // is due at 1001
  world.clock->nowIs(world.clock->now() + rt::Seconds(1.5));
  world.rowIs("web2", on);  // at 1002.5
  world.fortune.take();
  world.manager.turn(rt::Seconds(0));
  world.settle();
  EXPECT_THAT(world.fortune.take(), ElementsAre("fail web1"));
}

TEST_F(VmFailureTest, IsNotTriedAgainOnceTheVmIsDisabled) {
  world.fortune.startFails = {"web1"};
  world.rowIs("web1", on);
  world.rowIs("web1", off);
  world.fortune.take();
  EXPECT_THAT(tries(100), IsEmpty());
  EXPECT_EQ(world.problem("web1"), "") << "it is as it was asked to be";
}

TEST_F(VmFailureTest, OfAMissingImageIsAProblemAndWaitsForTheImage) {
  world.images.missing = {"/images/web.iso"};
  world.fortune.startFails = {"web1"};
  world.rowIs("web1", on);
  EXPECT_EQ(world.problem("web1"),
            "image: diskImage: '/images/web.iso' is refused: must be a file that is there");
  world.fortune.take();
  EXPECT_THAT(tries(60), IsEmpty()) << "the agent is not asked in vain";
  world.images.missing = {};
  world.fortune.startFails = {};
  world.advance(60);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
  EXPECT_EQ(world.problem("web1"), "");
}

TEST_F(VmFailureTest, OfAMissingImageIsNoneOfAVmThatIsOff) {
  world.images.missing = {"/images/web.iso"};
  world.fortune.startFails = {"web1"};
  world.rowIs("web1", on);
  world.rowIs("web1", off);
  EXPECT_EQ(world.problem("web1"), "");
}

TEST_F(VmFailureTest, OfAMissingImageEndsWithAnotherImage) {
  world.images.missing = {"/images/web.iso"};
  world.fortune.startFails = {"web1"};
  world.rowIs("web1", on);
  world.fortune.take();
  world.fortune.startFails = {};
  world.rowIs("web1", {.diskImage = "/images/other.iso"});
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
  EXPECT_EQ(world.problem("web1"), "");
}

TEST_F(VmFailureTest, HandsAChangeOverAlsoWhileTheImageIsMissing) {
  world.images.missing = {"/images/web.iso"};
  world.fortune.startFails = {"web1"};
  world.rowIs("web1", on);
  world.rowIs("web1", {.memory = 512});
  EXPECT_EQ(world.config->vmConfig("web1")->memory(), 512U);
}

// Handlers that throw.

TEST_F(VmFailureTest, ThatIsThrownLeavesTheOtherVmsAlone) {
  world.fortune.throws = {"web1"};
  world.apply({world.put("web1", on.doc()), world.put("web2", on.doc())});
  world.settle();
  EXPECT_EQ(world.process("web2"), "running 101");
  EXPECT_EQ(world.problem("web2"), "");
  EXPECT_EQ(world.problem("web1"), "agent: the agent has no more descriptors");
}

TEST_F(VmFailureTest, ThatIsThrownIsShownUntilTheNextGoodChange) {
  world.fortune.throws = {"web1"};
  world.rowIs("web1", on);
  world.advance(60);
  EXPECT_EQ(world.problem("web1"), "agent: the agent has no more descriptors");
  EXPECT_EQ(world.hostStatus->vmProblem("web1")->since(), 1000U);
  world.fortune.throws = {};
  world.rowIs("web1", {.diskImage = "/images/web.iso", .memory = 256, .vncPort = 5901});
  EXPECT_THAT(world.problem("web1"), HasSubstr("restart: vncPort"));
}

TEST_F(VmFailureTest, ThatIsThrownWhenAVmIsSwitchedOffIsNoHindranceLater) {
  world.rowIs("web1", on);
  world.fortune.throws = {"web1"};
  world.rowIs("web1", off);
  EXPECT_EQ(world.problem("web1"), "agent: the agent has no more descriptors");
  EXPECT_EQ(world.process("web1"), "ending 100");
  world.fortune.throws = {};
  world.end("web1");
  world.rowIs("web1", on);
  EXPECT_EQ(world.process("web1"), "running 101");
  EXPECT_EQ(world.problem("web1"), "");
}

TEST_F(VmFailureTest, ThatIsThrownHidesNoProcess) {
  world.fortune.throws = {"web1"};
  world.rowIs("web1", on);
  EXPECT_EQ(world.process("web1"), "running 100");
}

TEST_F(VmFailureTest, ThatIsThrownByAStartIsTriedAgain) {
  world.fortune.startFails = {"web1"};
  world.fortune.throws = {"web1"};
  world.rowIs("web1", on);
  world.fortune.startFails = {};
  world.fortune.throws = {};
  world.fortune.take();
  world.advance(10);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
  EXPECT_EQ(world.problem("web1"), "");
}

TEST_F(VmFailureTest, ThatIsThrownInTheMidstOfAChangeLosesNoFieldOfIt) {
  world.rowIs("web1", on);
  world.fortune.throws = {"web1"};  // the new image is told of before the memory is written
  world.rowIs("web1", {.diskImage = "/images/other.iso", .memory = 512});
  EXPECT_EQ(world.config->vmConfig("web1")->memory(), 256U);
  world.advance(1);
  EXPECT_EQ(world.config->vmConfig("web1")->memory(), 512U);
}

TEST_F(VmFailureTest, ThatIsThrownWhenAVmIsHandedOverIsTriedAgain) {
  world.fortune.mountThrows = {"web1"};
  world.rowIs("web1", on);
  EXPECT_EQ(world.problem("web1"), "agent: the agent has no more memory");
  world.advance(10);
  world.fortune.mountThrows = {};
  world.advance(1);
  EXPECT_EQ(world.process("web1"), "running 100");
  EXPECT_EQ(world.problem("web1"), "");
}

TEST_F(VmFailureTest, ThatIsThrownOnceIsNoProblemAnyMoreWhenItWentWell) {
  world.fortune.mountThrows = {"web1"};
  world.rowIs("web1", off);
  world.fortune.mountThrows = {};
  world.advance(1);
  EXPECT_TRUE(world.config->vmConfigHas("web1"));
  EXPECT_EQ(world.problem("web1"), "");
}

TEST_F(VmFailureTest, ThatIsThrownAgainAndAgainIsReportedOnce) {
  rt::fakes::TraceRecorder traces;
  world.fortune.mountThrows = {"web1"};
  world.rowIs("web1", off);
  world.advance(60);
  EXPECT_THAT(traces.take(1), ElementsAre("vmagentd: VM web1: the agent has no more memory"));
}

TEST_F(VmFailureTest, ThatIsThrownWhenAVmGoesKeepsNoNewOneFromComing) {
  world.rowIs("web1", on);
  world.fortune.throws = {"web1"};
  world.apply({world.putNew("web1", on.doc())});
  world.settle();
  EXPECT_EQ(world.problem("web1"), "agent: the agent cannot let go");
  world.fortune.throws = {};
  world.end("web1");
  world.advance(1);
  EXPECT_EQ(world.process("web1"), "running 101");
}

TEST_F(VmFailureTest, ThatIsThrownWhenAVmGoesLeavesNothingOfIt) {
  world.rowIs("web1", off);
  world.fortune.throws = {"web1"};
  world.rowDel("web1");
  EXPECT_EQ(world.problem("web1"), "");
  EXPECT_EQ(world.process("web1"), "");
  world.advance(10);
  EXPECT_EQ(world.clock->nextWakeUpTime(), rt::Seconds::infinity());
}

}  // namespace
}  // namespace host
