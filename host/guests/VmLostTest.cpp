// Guests that go on though the process has ended that the agent had for them, and processes that do
// not end when they are told to.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/fakes/SupervisorWorld.h"

namespace host {
namespace {

using fakes::off;
using fakes::on;
using fakes::SupervisorWorld;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const rt::Seconds patience = rt::Seconds(15) + shimsOwn;

// The guest of web1 is kept by an earlier daemon's shim, and is to be taken up.
class VmLost : public testing::Test {
 protected:
  VmLost() {
    world.going.there.insert("web1");
    world.going.deciding = [this](const rt::String& vm) {
      world.waiting.waits(vm, 1);
      world.supervisor->adoptableIs(vm, true);
    };
    world.supervisor->adoptableIs("web1", true);
    world.rowIs("web1", on);
    (void)world.fortune.take();
  }

  model::VmProcess::Ptr shown() const { return world.hostStatus->vmProcess("web1"); }
  // A stand-in takes the guest up, and fails as the one before.
  void fail() {
    world.shims.lastErrors["web1"] = "its shim does not answer";
    world.end("web1");
  }

  SupervisorWorld world{{}, patience};
};

TEST_F(VmLost, IsNotShownToHaveEndedAndItsGuestIsTakenUpAgain) {
  fail();
  EXPECT_EQ(shown()->actual(), "starting") << "as it was";
  EXPECT_EQ(shown()->endCause(), "");
  EXPECT_THAT(world.aroundStart.endings, IsEmpty());
  EXPECT_EQ(shown()->nextAt(), 1001U);
  world.advance(1);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1", "took up web1"));
  EXPECT_FALSE(world.waiting.isWaiting("web1"));
}

TEST_F(VmLost, IsToldOfByWhatItsStandInSaid) {
  fail();
  EXPECT_THAT(shown()->reason().str(), HasSubstr("out-of-reach"));
  EXPECT_THAT(shown()->why().str(),
              HasSubstr("it goes on, and nobody drives it: its shim does not answer"));
}

TEST_F(VmLost, IsTriedAfterOneSecondAndThenMoreAndMoreSeldom) {
  std::vector<double> starts;
  for (int second = 0; second < 32; ++second) {
    if (!world.fortune.processes.empty()) fail();
    (void)world.fortune.take();
    world.advance(1);
    if (!world.fortune.take().empty()) starts.push_back(second + 1);
  }
  EXPECT_THAT(starts, ElementsAre(1, 3, 7, 15, 31));
}

TEST_F(VmLost, HasEndedOnceNobodyAnswersForItsGuest) {
  fail();
  world.shims.gone.insert("web1");
  world.going.there.clear();
  world.advance(1);
  EXPECT_THAT(world.fortune.take(), IsEmpty()) << "what has ended is not started by itself";
  EXPECT_THAT(world.aroundStart.endings, ElementsAre("web1"));
  EXPECT_FALSE(world.waiting.isWaiting("web1"));
}

TEST_F(VmLost, HasItsGuestEndedWhenItIsRestarted) {
  fail();
  world.restartIs("web1", 1);
  EXPECT_THAT(world.going.told, ElementsAre("decide on web1", "end web1"));
}

TEST_F(VmLost, HasItsGuestEndedWhoseStandInDiedWhenItWasToEnd) {
  world.rowIs("web1", off);
  world.advance(patience.value());
  world.end("web1");
  EXPECT_THAT(world.going.told, ElementsAre("end web1"));
}

TEST_F(VmLost, IsOneThatHasEndedWhoseStandInDiedOnceTheGuestHadAnswered) {
  world.status->vmStatus("web1")->stateIs("Running");
  fail();
  EXPECT_THAT(world.going.told, IsEmpty()) << "its shim ends it";
  EXPECT_THAT(world.aroundStart.endings, ElementsAre("web1"));
  world.advance(60);
  EXPECT_THAT(world.fortune.take(), IsEmpty());
}

TEST_F(VmLost, IsOneThatHasEndedWhereNobodyHasAGuestOfIt) {
  world.going.there.clear();
  fail();
  EXPECT_THAT(world.aroundStart.endings, ElementsAre("web1"));
  world.advance(60);
  EXPECT_THAT(world.fortune.take(), IsEmpty());
}

TEST(VmStart, IsTriedAgainWhereNoProcessCouldBeMade) {
  SupervisorWorld world;
  world.fortune.nextPid = -1;
  world.rowIs("web1", on);
  EXPECT_EQ(world.hostStatus->vmProcess("web1")->actual(), "retrying");
  EXPECT_EQ(world.problem("web1"),
            "qemu: no process could be made for it: too many are there, or memory is short");
  world.fortune.nextPid = 100;
  world.end("web1");  // the agent has noted it
  (void)world.fortune.take();
  world.advance(1);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
  EXPECT_EQ(world.problem("web1"), "");
  world.end("web1");
  world.advance(60);
  EXPECT_THAT(world.fortune.take(), IsEmpty()) << "what has ended is not started by itself";
}

TEST(VmEnd, IsForcedOnAProcessThatDoesNotEndWhenItIsTold) {
  SupervisorWorld world({}, patience);
  world.rowIs("web1", on);
  world.rowIs("web1", off);
  world.advance(patience.value() + shimsOwn.value() - 1);
  EXPECT_THAT(world.processes.killed, IsEmpty());
  world.advance(1);
  EXPECT_THAT(world.processes.killed, ElementsAre(100));
  world.end("web1");
  world.advance(60);
  EXPECT_THAT(world.processes.killed, ElementsAre(100)) << "the number is another's by now";
}

TEST(VmEnd, IsForcedOnAProcessOfAVmThatWasRemoved) {
  SupervisorWorld world({}, patience);
  world.rowIs("web1", on);
  world.rowDel("web1");
  world.advance(patience.value() + shimsOwn.value());
  EXPECT_THAT(world.processes.killed, ElementsAre(100));
}

TEST(VmEnd, IsForcedOnNobodyWhoIsNotToEnd) {
  SupervisorWorld world({}, patience);
  world.rowIs("web1", on);
  world.restartIs("web1", 1);
  world.end("web1");
  world.advance(600);
  EXPECT_THAT(world.processes.killed, IsEmpty());
}

}  // namespace
}  // namespace host
