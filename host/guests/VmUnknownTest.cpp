// Guests that go on though the configuration does not have their VM any more.
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
using testing::HasSubstr;
using testing::IsEmpty;

class VmUnknown : public testing::Test {
 protected:
  ~VmUnknown() override { EXPECT_FALSE(world.fortune.twoOfOneVm); }
  std::vector<std::string> effects() { return world.fortune.take(); }
  void run(const char* vm) {
    world.rowIs(vm, on);
    effects();
  }
  // Another store takes the place of the one before, which does not have the VM.
  void lose(const char* vm) {
    world.apply({SupervisorWorld::found(SupervisorWorld::del(vm))}, "h2");
    world.settle();
  }
  // And one that has it.
  void find(const char* vm, const Row& row, const rt::String& history = "h3") {
    world.apply({SupervisorWorld::found(world.putNew(vm, row.doc()))}, history);
    world.settle();
  }
  rt::String unknown(const char* vm) const {
    const auto record = world.hostStatus->vmProcess(vm);
    return record ? record->unknown() : rt::String();
  }

  SupervisorWorld world;
};

TEST_F(VmUnknown, GoesOnAsItIsWhenItsRowIsLostAndIsShown) {
  run("web1");
  lose("web1");
  world.advance(600);
  EXPECT_THAT(effects(), IsEmpty());
  EXPECT_TRUE(world.config->vmConfig("web1")->enabled());
  EXPECT_EQ(world.process("web1"), "running 100");
  EXPECT_EQ(unknown("web1"), "guest100");
  EXPECT_EQ(world.problem("web1"),
            "config: not configured, and not known to be removed: config.db was replaced by one "
            "that does not have it; 'vmctl apply' what has it, and it is kept, or 'vmctl remove "
            "web1 --force' ends it");
}

TEST_F(VmUnknown, IsItselfAgainWhenARowIsThereWhereverItWasMade) {
  run("web1");
  lose("web1");
  find("web1", on);
  EXPECT_THAT(effects(), IsEmpty());
  EXPECT_EQ(world.process("web1"), "running 100");
  EXPECT_EQ(unknown("web1"), "");
  EXPECT_EQ(world.problem("web1"), "");
  lose("web1");
  world.rowIs("web1", on);
  EXPECT_THAT(effects(), IsEmpty()) << "an operator's 'apply'";
}

TEST_F(VmUnknown, IsSwitchedOffByARowThatSaysSo) {
  run("web1");
  lose("web1");
  find("web1", off);
  EXPECT_THAT(effects(), ElementsAre("kill web1"));
}

TEST_F(VmUnknown, GoesOnWhenItsRowComesBackAndIsNotUnderstood) {
  run("web1");
  lose("web1");
  find("web1", {.memory = 0});
  EXPECT_THAT(effects(), IsEmpty());
  EXPECT_THAT(world.problem("web1"), HasSubstr("memory: '0' is refused"));
  EXPECT_EQ(unknown("web1"), "");
}

TEST_F(VmUnknown, EndsWhenItsRowIsKnownToBeRemovedAfterAll) {
  run("web1");
  lose("web1");
  world.rowDel("web1");
  EXPECT_THAT(effects(), ElementsAre("kill web1"));
  world.end("web1");
  EXPECT_EQ(world.process("web1"), "");
  EXPECT_EQ(world.problem("web1"), "");
}

TEST_F(VmUnknown, EndsWhenAnOperatorGivesItUpAndNotForAnother) {
  run("web1");
  lose("web1");
  world.supervisor->givenUpIs("web1", "guest99");
  world.settle();
  EXPECT_THAT(effects(), IsEmpty()) << "that was another guest";
  world.supervisor->givenUpIs("web1", "guest100");
  world.settle();
  EXPECT_THAT(effects(), ElementsAre("kill web1"));
  EXPECT_EQ(unknown("web1"), "");
  world.end("web1");
  EXPECT_EQ(world.process("web1"), "");
  EXPECT_EQ(world.config->vmConfig("web1"), nullptr);
}

TEST_F(VmUnknown, IsNotEndedByNameWhileItsRowIsThere) {
  run("web1");
  world.supervisor->givenUpIs("web1", "guest100");
  world.advance(600);
  EXPECT_THAT(effects(), IsEmpty());
}

TEST_F(VmUnknown, IsGoneOnceItsGuestHasEnded) {
  run("web1");
  lose("web1");
  world.end("web1");
  EXPECT_THAT(effects(), IsEmpty());
  EXPECT_EQ(world.process("web1"), "");
  EXPECT_EQ(world.problem("web1"), "");
  EXPECT_EQ(world.config->vmConfig("web1"), nullptr);
  find("web1", on);
  EXPECT_THAT(effects(), ElementsAre("start web1"));
}

TEST_F(VmUnknown, IsGoneAtOnceWithoutAProcess) {
  world.rowIs("web1", off);
  world.fortune.startFails.insert("web2");
  world.rowIs("web2", on);
  effects();
  lose("web1");
  lose("web2");
  EXPECT_EQ(world.config->vmConfigs().size(), 0U);
  EXPECT_EQ(world.process("web2"), "");
  EXPECT_EQ(world.problem("web2"), "");
  world.fortune.startFails.clear();
  world.advance(600);
  EXPECT_THAT(effects(), IsEmpty());
}

TEST(VmUnknownStop, IsCarriedThroughOnceItWasBegun) {
  SupervisorWorld patient({}, rt::Seconds(20));
  patient.rowIs("web1", on);
  patient.rowIs("web1", off);
  EXPECT_THAT(patient.fortune.take(), ElementsAre("start web1", "ask web1"));
  patient.apply({SupervisorWorld::found(SupervisorWorld::del("web1"))});
  patient.settle();
  patient.advance(20);
  EXPECT_THAT(patient.fortune.take(), ElementsAre("kill web1"));
  patient.end("web1");
  EXPECT_EQ(patient.process("web1"), "");
}

TEST_F(VmUnknown, IsRestartedByNoNumberThatAnotherConfigurationHas) {
  run("web1");
  world.supervisor->restartIsPast("web1", 7);
  world.advance(600);
  EXPECT_THAT(effects(), IsEmpty());
  world.restartIs("web1", 8);
  EXPECT_THAT(effects(), ElementsAre("kill web1"));
}

// What its shim is told, for the daemon that comes next.

TEST_F(VmUnknown, IsToldOfItsNewRowOnceThatIsThere) {
  run("web1");
  EXPECT_THAT(world.shims.told, IsEmpty()) << "its start was told";
  lose("web1");
  EXPECT_THAT(world.shims.told, IsEmpty());
  find("web1", on, "h3");
  ASSERT_EQ(world.shims.told.size(), 1U);
  EXPECT_EQ(world.shims.told[0].vm, "web1");
  EXPECT_EQ(world.shims.told[0].row, world.rows.row("web1")->origin);
  EXPECT_EQ(world.shims.told[0].row.history, "h3");
  world.rowIs("web2", on);
  world.apply({world.put("web1", on.doc())}, "h3");
  world.settle();
  EXPECT_EQ(world.shims.told.size(), 1U) << "nothing is new of that";
}

TEST(VmUnknownStop, IsNotToldOfTheRowOfTheVmThatComesNext) {
  SupervisorWorld patient({}, rt::Seconds(20));
  patient.rowIs("web1", on);
  patient.apply({patient.putNew("web1", on.doc())});
  patient.settle();
  EXPECT_THAT(patient.shims.told, IsEmpty()) << "it is to end";
  patient.end("web1");
  EXPECT_THAT(patient.shims.told, IsEmpty()) << "its start was told";
}

TEST_F(VmUnknown, ThatIsTakenUpIsToldOfItsRow) {
  world.supervisor->adoptableIs("web1", true);
  world.rowIs("web1", on);
  ASSERT_EQ(world.shims.told.size(), 1U);
  EXPECT_EQ(world.shims.told[0].row, world.rows.row("web1")->origin);
}

// Guests of an earlier daemon's.

TEST_F(VmUnknown, OfAnEarlierDaemonIsShownUntilItIsGone) {
  world.supervisor->survivorsIs("web1", 1);
  world.supervisor->unknownIs("web1", UnknownGuest{7, "7.88", "why"});
  world.settle();
  EXPECT_EQ(world.process("web1"), "running 7");
  EXPECT_EQ(unknown("web1"), "7.88");
  EXPECT_THAT(world.problem("web1"), HasSubstr("not known to be removed: why; 'vmctl apply'"));
  world.supervisor->survivorsIs("web1", 0);
  world.settle();
  EXPECT_EQ(world.process("web1"), "");
  EXPECT_EQ(world.problem("web1"), "");
}

TEST_F(VmUnknown, OfAnEarlierDaemonKeepsItsVmFromStartingAndIsTakenUp) {
  world.supervisor->survivorsIs("web1", 1);
  world.supervisor->unknownIs("web1", UnknownGuest{7, "7.88", "why"});
  world.settle();
  // As EarlierGuests does when there is a row.
  world.supervisor->survivorsIs("web1", 0);
  world.supervisor->adoptableIs("web1", true);
  world.rowIs("web1", on);
  EXPECT_THAT(effects(), ElementsAre("start web1", "took up web1"));
  EXPECT_EQ(world.process("web1"), "running 100");
  EXPECT_EQ(world.problem("web1"), "");
}

TEST_F(VmUnknown, OfAnEarlierDaemonIsNotStartedBesideWhileItsRowIsLostAgain) {
  world.apply({world.put("web1", on.doc())});
  world.supervisor->adoptableIs("web1", true);
  world.supervisor->pass();  // mounts it, switched off
  // Lost before its turn came.
  world.apply({SupervisorWorld::found(SupervisorWorld::del("web1"))});
  world.supervisor->adoptableIs("web1", false);
  world.supervisor->survivorsIs("web1", 1);
  world.supervisor->unknownIs("web1", UnknownGuest{7, "7.88", "why"});
  world.advance(600);
  EXPECT_THAT(effects(), IsEmpty());
  EXPECT_EQ(world.process("web1"), "running 7");
  world.supervisor->survivorsIs("web1", 0);
  world.settle();
  EXPECT_THAT(effects(), IsEmpty());
  EXPECT_EQ(world.config->vmConfig("web1"), nullptr);
}

}  // namespace
}  // namespace host
