// All configured VMs, held to what is asked for, over an agent with memory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/fakes/SupervisorWorld.h"
#include "runtime/fakes/ChangeRecorder.h"

namespace host {
namespace {

using fakes::off;
using fakes::on;
using fakes::Row;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class VmSupervisorTest : public testing::Test {
 protected:
  ~VmSupervisorTest() override { EXPECT_FALSE(world.fortune.twoOfOneVm); }
  std::vector<std::string> effects() { return world.fortune.take(); }
  bool isOn(const char* vm) const {
    const auto record = world.config->vmConfig(vm);
    return record && record->enabled();
  }
  // A VM that runs, and what led there forgotten.
  void start(const char* vm) {
    world.rowIs(vm, on);
    effects();
  }

  fakes::SupervisorWorld world;
};

TEST_F(VmSupervisorTest, MountsAllSwitchedOffBeforeTheFirstIsSwitchedOn) {
  world.apply({world.put("a", on.doc()), world.put("b", off.doc()), world.put("c", on.doc())});
  EXPECT_TRUE(world.supervisor->pass());
  EXPECT_EQ(world.config->vmConfigs().size(), 3U);
  EXPECT_THAT(effects(), IsEmpty());
  EXPECT_FALSE(isOn("a"));
  EXPECT_EQ(world.config->vmConfig("a")->memory(), 256U);
}

TEST_F(VmSupervisorTest, StartsOneVmAPass) {
  world.apply({world.put("a", on.doc()), world.put("b", on.doc()), world.put("c", on.doc())});
  world.supervisor->pass();
  world.supervisor->pass();
  EXPECT_THAT(effects(), ElementsAre("start a"));
  world.supervisor->pass();
  EXPECT_THAT(effects(), ElementsAre("start b"));
  world.supervisor->pass();
  EXPECT_THAT(effects(), ElementsAre("start c"));
}

TEST_F(VmSupervisorTest, HasNothingLeftToDoWhenAllIsAsAskedFor) {
  start("web1");
  EXPECT_FALSE(world.supervisor->pass());
  world.advance(3600);
  EXPECT_THAT(effects(), IsEmpty());
  EXPECT_EQ(world.clock->nextWakeUpTime(), rt::Seconds::infinity()) << "idle, it never wakes";
}

TEST_F(VmSupervisorTest, LetsNoVmStarveBehindOneThatHasAlwaysMoreToDo) {
  start("a");
  world.apply({world.put("b", on.doc())});
  for (uint64_t restart = 1; restart < 5; ++restart) {
    world.supervisor->restartIs("a", restart);
    world.supervisor->pass();
    if (!isOn("a")) world.exits("a");
    world.supervisor->pass();
  }
  EXPECT_TRUE(isOn("b"));
}

TEST_F(VmSupervisorTest, EndsTheGuestOfARowThatIsGoneAndLeavesNothing) {
  start("web1");
  world.rowDel("web1");
  EXPECT_THAT(effects(), ElementsAre("kill web1"));
  EXPECT_EQ(world.process("web1"), "ending 100");
  world.end("web1");
  EXPECT_EQ(world.process("web1"), "");
  EXPECT_EQ(world.problem("web1"), "");
  EXPECT_FALSE(world.config->vmConfigHas("web1"));
  EXPECT_FALSE(world.status->vmStatusHas("web1"));
}

TEST_F(VmSupervisorTest, SwitchesOffWhatIsDisabledAndShowsItsProcessUntilItIsGone) {
  start("web1");
  world.rowIs("web1", off);
  EXPECT_THAT(effects(), ElementsAre("kill web1"));
  EXPECT_EQ(world.process("web1"), "ending 100");
  world.end("web1");
  EXPECT_EQ(world.process("web1"), "");
}

TEST_F(VmSupervisorTest, StartsOnlyWhenTheProcessOfBeforeIsGone) {
  start("web1");
  world.rowIs("web1", off);
  world.rowIs("web1", on);
  world.advance(600);
  EXPECT_THAT(effects(), ElementsAre("kill web1"));
  world.end("web1");
  EXPECT_THAT(effects(), ElementsAre("start web1"));
  EXPECT_EQ(world.process("web1"), "running 101");
}

TEST_F(VmSupervisorTest, StartsAVmMadeAnewOnlyWhenTheProcessOfTheOldOneIsGone) {
  start("web1");
  world.rowDel("web1");
  world.rowIs("web1", on);
  world.advance(600);
  EXPECT_THAT(effects(), ElementsAre("kill web1"));
  EXPECT_TRUE(world.config->vmConfigHas("web1"));
  world.end("web1");
  EXPECT_THAT(effects(), ElementsAre("start web1"));
}

TEST_F(VmSupervisorTest, TakesARowRemovedAndMadeAnewAtOnceForAnotherVm) {
  start("web1");
  const auto before = world.config->vmConfig("web1");
  world.apply({world.putNew("web1", on.doc())});
  world.settle();
  EXPECT_THAT(effects(), ElementsAre("kill web1"));
  EXPECT_NE(world.config->vmConfig("web1"), before);
  world.end("web1");
  EXPECT_THAT(effects(), ElementsAre("start web1"));
  EXPECT_EQ(world.process("web1"), "running 101");
}

TEST_F(VmSupervisorTest, LeavesAGuestAloneThatWasDisabledAndEnabledAtOnce) {
  start("web1");
  world.apply({world.put("web1", off.doc())});
  world.apply({world.put("web1", on.doc())});
  world.settle();
  EXPECT_THAT(effects(), IsEmpty());
  EXPECT_EQ(world.process("web1"), "running 100");
}

TEST_F(VmSupervisorTest, WritesTheSwitchLastWhenItGoesOnAndFirstWhenItGoesOff) {
  world.rowIs("web1", off);
  const auto recorder = rt::make<rt::fakes::ChangeRecorder>();
  recorder->watch(world.config->vmConfig("web1"));
  world.rowIs("web1", {.enabled = true, .memory = 512});
  EXPECT_THAT(recorder->take(),
              ElementsAre("Vm::VmConfig.memory = 512", "Vm::VmConfig.enabled = true"));
  world.rowIs("web1", {.enabled = false, .memory = 1024});
  EXPECT_THAT(recorder->take(),
              ElementsAre("Vm::VmConfig.enabled = false", "Vm::VmConfig.memory = 1024"));
}

TEST_F(VmSupervisorTest, HandsAChangeOfARunningVmOnWithoutSwitchingIt) {
  start("web1");
  world.rowIs("web1", {.enabled = true, .memory = 512});
  EXPECT_THAT(effects(), IsEmpty());
  EXPECT_EQ(world.config->vmConfig("web1")->memory(), 512U);
}

TEST_F(VmSupervisorTest, LeavesAVmAloneWhoseGuestHasEndedByItself) {
  start("web1");
  world.end("web1");
  world.advance(3600);
  EXPECT_THAT(effects(), IsEmpty());
  EXPECT_EQ(world.process("web1"), "");
  EXPECT_EQ(world.problem("web1"), "");
}

// What runs, as the database shows it.

TEST_F(VmSupervisorTest, ShowsNoProcessOfAVmThatNeverRan) {
  world.rowIs("web1", off);
  const auto record = world.hostStatus->vmProcess("web1");
  EXPECT_EQ(record->process(), "none");
  EXPECT_EQ(record->pid(), 0);
  EXPECT_EQ(record->actual(), "stopped");
  world.rowDel("web1");
  EXPECT_EQ(world.hostStatus->vmProcesses().size(), 0U);
}

TEST_F(VmSupervisorTest, ShowsTheProcessOfARunningVm) {
  world.rowIs("web1", on);
  EXPECT_EQ(world.process("web1"), "running 100");
  EXPECT_EQ(world.hostStatus->vmProcess("web1")->restarts(), 0U);
}

TEST_F(VmSupervisorTest, ShowsTheRestartsThatWereDoneAlsoWithoutAProcess) {
  start("web1");
  world.restartIs("web1", 2);
  world.end("web1");
  world.rowIs("web1", off);
  world.end("web1");
  EXPECT_EQ(world.process("web1"), "none 0");
  EXPECT_EQ(world.hostStatus->vmProcess("web1")->restarts(), 2U);
}

// Changes that a restart brings.

TEST_F(VmSupervisorTest, SaysWhatTakesEffectAtTheNextRestart) {
  start("web1");
  world.rowIs("web1", {.enabled = true, .memory = 512, .vncPort = 5901});
  EXPECT_EQ(world.problem("web1"),
            "restart: memory, vncPort: changed since the guest was started; 'vmctl restart web1' "
            "applies it");
  world.restartIs("web1", 1);
  EXPECT_EQ(world.problem("web1"), "") << "it is under way";
  world.end("web1");
  EXPECT_EQ(world.problem("web1"), "");
  EXPECT_THAT(effects(), ElementsAre("kill web1", "start web1"));
}

TEST_F(VmSupervisorTest, NeedsNoRestartForWhatWasChangedBack) {
  start("web1");
  world.rowIs("web1", {.enabled = true, .memory = 512});
  world.rowIs("web1", on);
  EXPECT_EQ(world.problem("web1"), "");
}

TEST_F(VmSupervisorTest, NeedsNoRestartOfAGuestThatHasEnded) {
  start("web1");
  world.rowIs("web1", {.enabled = true, .memory = 512});
  world.end("web1");
  EXPECT_EQ(world.problem("web1"), "");
}

TEST_F(VmSupervisorTest, NeedsNoRestartOfAVmThatIsBeingSwitchedOff) {
  start("web1");
  world.rowIs("web1", {.enabled = false, .memory = 512});
  EXPECT_EQ(world.process("web1"), "ending 100");
  EXPECT_EQ(world.problem("web1"), "");
}

// Rows that are refused.

TEST_F(VmSupervisorTest, ShowsWhatTheShimOfARunningGuestFindsWrong) {
  world.rowIs("web1", on);
  world.supervisor->guestProblemIs("web1", "card nic00 was refused");
  world.settle();
  EXPECT_EQ(world.problem("web1"), "guest: card nic00 was refused");
  world.supervisor->guestProblemIs("web1", "");
  world.settle();
  EXPECT_EQ(world.problem("web1"), "");
}

TEST_F(VmSupervisorTest, BelievesNoShimWhoseGuestIsGone) {
  world.rowIs("web1", on);
  world.supervisor->guestProblemIs("web1", "card nic00 was refused");
  world.settle();
  EXPECT_EQ(world.problem("web1"), "guest: card nic00 was refused");
  world.exits("web1");
  world.settle();
  EXPECT_EQ(world.problem("web1"), "");
  world.supervisor->guestProblemIs("web2", "of a VM that is not configured");
  world.settle();
  EXPECT_EQ(world.problem("web2"), "");
}

TEST_F(VmSupervisorTest, HandsNoRefusedRowOverAndSaysAllThatIsWrong) {
  world.rowIs("web1", {.enabled = true, .diskImage = "web.iso", .memory = 0});
  EXPECT_FALSE(world.config->vmConfigHas("web1"));
  EXPECT_EQ(world.problem("web1"),
            "config: diskImage: 'web.iso' is refused: must be an absolute path without blanks, "
            "commas and control characters; memory: '0' is refused: must be 1 to 8192 (mebibytes; "
            "this machine has no more)");
}

TEST_F(VmSupervisorTest, LeavesTheLastValidRowInForce) {
  start("web1");
  world.rowIs("web1", {.enabled = false, .memory = 0});
  EXPECT_THAT(effects(), IsEmpty());
  EXPECT_THAT(world.problem("web1"), HasSubstr("config: memory: '0' is refused"));
  world.rowIs("web1", off);
  EXPECT_THAT(effects(), ElementsAre("kill web1"));
  EXPECT_EQ(world.problem("web1"), "");
}

TEST_F(VmSupervisorTest, SaysWhichLimitsAreRefusedAndLeavesTheGuestAlone) {
  world.rowIs("web1", {});
  world.own.rowIs("vmLimits", "web1",
                  statedb::Record{"vmLimits", "web1", R"({"cpuWeight":0})", 1, 1});
  world.supervisor->ownRowsAreKnown("web1");
  world.settle();
  EXPECT_EQ(world.problem("web1"),
            "config: vmLimits: cpuWeight: '0' is refused: must be 1 to 10000; 100 is usual");
  EXPECT_EQ(world.process("web1"), "running 100");
  world.own.rowIs("vmLimits", "web1", std::nullopt);
  world.supervisor->ownRowsAreKnown("web1");
  world.settle();
  EXPECT_EQ(world.problem("web1"), "");
}

TEST_F(VmSupervisorTest, EndsTheVmWhoseRowWasMadeAnewAndIsRefused) {
  start("web1");
  world.apply({world.putNew("web1", Row{.memory = 0}.doc())});
  world.settle();
  EXPECT_THAT(effects(), ElementsAre("kill web1"));
  EXPECT_FALSE(world.config->vmConfigHas("web1"));
  world.end("web1");
  EXPECT_THAT(world.problem("web1"), HasSubstr("config: memory"));
}

TEST_F(VmSupervisorTest, IsIdleWhenTheRowOfAFailingVmWasMadeAnewAndIsRefused) {
  world.fortune.startFails = {"web1"};
  world.rowIs("web1", on);
  world.apply({world.putNew("web1", Row{.memory = 0}.doc())});
  world.settle();
  EXPECT_EQ(world.clock->nextWakeUpTime(), rt::Seconds::infinity());
  EXPECT_THAT(world.problem("web1"), HasSubstr("config: memory"));
}

TEST_F(VmSupervisorTest, ForgetsTheProblemOfARefusedRowThatIsGone) {
  world.rowIs("web1", {.memory = 0});
  world.rowDel("web1");
  EXPECT_EQ(world.problem("web1"), "");
}

// Cards.

TEST_F(VmSupervisorTest, TellsOfItsCardsBeforeAVmIsSwitchedOffAndAfter) {
  start("web1");
  EXPECT_THAT(world.cards.take(), IsEmpty());
  world.rowIs("web1", off);
  EXPECT_THAT(world.cards.take(), ElementsAre("before off: web1 is on", "off: web1 is off"));
}

TEST_F(VmSupervisorTest, TellsOfItsCardsBeforeAVmIsRemovedAndAfter) {
  start("web1");
  world.rowDel("web1");
  EXPECT_THAT(world.cards.take(), ElementsAre("before off: web1 is on", "off: web1 is gone"));
}

TEST_F(VmSupervisorTest, TellsOfItsCardsBeforeAVmIsRestarted) {
  start("web1");
  world.restartIs("web1", 1);
  world.end("web1");
  EXPECT_THAT(effects(), ElementsAre("kill web1", "start web1"));
  EXPECT_THAT(world.cards.take(), ElementsAre("before off: web1 is on", "off: web1 is off"));
}

TEST_F(VmSupervisorTest, TellsOfItsCardsAfterASwitchOffThatThrew) {
  start("web1");
  world.fortune.throws = {"web1"};
  world.rowIs("web1", off);
  EXPECT_THAT(world.cards.take(), ElementsAre("before off: web1 is on", "off: web1 is off"));
}

TEST_F(VmSupervisorTest, TellsOfItsCardsAfterARemovalThatThrew) {
  start("web1");
  world.fortune.throws = {"web1"};
  world.rowDel("web1");
  EXPECT_THAT(world.cards.take(), ElementsAre("before off: web1 is on", "off: web1 is gone"));
}

TEST_F(VmSupervisorTest, TellsThatCardsMayHaveChangedWhenTheVmsMachineDid) {
  start("web1");
  start("web2");
  world.cards.takeChanged();
  world.agent->agent()->vmSm()->vmConfigSm("web1")->stir();
  EXPECT_THAT(world.cards.takeChanged(), ElementsAre("web1"));
  world.settle();
  world.advance(3600);
  EXPECT_THAT(world.cards.takeChanged(), IsEmpty());
}

TEST_F(VmSupervisorTest, TellsThatCardsMayHaveChangedWhenTheVmsStateDid) {
  start("web1");
  world.cards.takeChanged();
  world.status->vmStatus("web1")->stateIs("Running");
  EXPECT_THAT(world.cards.takeChanged(), ElementsAre("web1"));
}

// Guests that an earlier daemon left.

TEST_F(VmSupervisorTest, StartsOnlyWhenTheGuestsOfAnEarlierDaemonAreGone) {
  world.supervisor->survivorsIs("web1", 2);
  world.rowIs("web1", on);
  EXPECT_EQ(world.process("web1"), "ending 0");
  world.supervisor->survivorsIs("web1", 1);
  world.advance(600);
  EXPECT_THAT(effects(), IsEmpty());
  world.supervisor->survivorsIs("web1", 0);
  world.settle();
  EXPECT_THAT(effects(), ElementsAre("start web1"));
}

TEST_F(VmSupervisorTest, ShowsAGuestOfAnEarlierDaemonThatHasNoRowUntilItIsGone) {
  world.supervisor->survivorsIs("web1", 1);
  world.settle();
  EXPECT_EQ(world.process("web1"), "ending 0");
  world.supervisor->survivorsIs("web1", 0);
  world.settle();
  EXPECT_EQ(world.process("web1"), "");
}

}  // namespace
}  // namespace host
