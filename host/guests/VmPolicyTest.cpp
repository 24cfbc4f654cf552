// Restarts by a VM's policy.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "guest/EventWords.h"
#include "host/fakes/SupervisorWorld.h"

namespace host {
namespace {

using fakes::off;
using fakes::on;
using fakes::SupervisorWorld;
using testing::ElementsAre;
using testing::IsEmpty;

class VmPolicyTest : public testing::Test {
 protected:
  void policyIs(const char* restart) {
    world.own.rowIs("vmPolicy", "web1",
                    statedb::Record{"vmPolicy", "web1",
                                    R"({"restart":")" + rt::String(restart) + R"("})", 1, 1});
    world.supervisor->ownRowsAreKnown("web1");
    world.settle();
  }
  // Its shim tells of a whole run, and the process ends.
  void run(uint64_t number, std::string_view reason) {
    tell(number, guest::event::started);
    tell(number, guest::event::resumed);
    if (!reason.empty()) tell(number, guest::event::shutDown, reason);
    tell(number, guest::event::end);
    world.end("web1");
  }
  void tell(uint64_t run, std::string_view kind, std::string_view reason = {}) {
    const auto event = rt::make<GuestEvent>("web1");
    event->runIs(run);
    event->nIs(++number_);
    event->upIs(static_cast<uint64_t>(world.clock->now().value()) * 1000 + number_);
    event->kindIs(rt::String(kind));
    event->reasonIs(rt::String(reason));
    world.states->eventIs(*event);
  }

  SupervisorWorld world;
  uint64_t number_ = 0;
};

TEST_F(VmPolicyTest, StartsNothingAgainWhereNobodyHasSaid) {
  world.rowIs("web1", on);
  world.fortune.take();
  run(7, "guest-panic");
  world.advance(400);
  EXPECT_THAT(world.fortune.take(), IsEmpty());
  EXPECT_EQ(world.hostStatus->vmProcess("web1")->actual(), "crashed");
}

TEST_F(VmPolicyTest, StartsAgainAfterAFailure) {
  policyIs("on-failure");
  world.rowIs("web1", on);
  world.fortune.take();
  run(7, "guest-panic");
  const auto record = world.hostStatus->vmProcess("web1");
  EXPECT_EQ(record->actual(), "retrying");
  EXPECT_EQ(record->why(), "the guest panicked, after 0 s") << "it says how it ended";
  EXPECT_EQ(record->nextAt(), 1001U);
  EXPECT_THAT(world.fortune.take(), IsEmpty()) << "not yet";
  world.advance(1);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
}

TEST_F(VmPolicyTest, StartsNoGuestAgainOnFailureThatShutItselfDown) {
  policyIs("on-failure");
  world.rowIs("web1", on);
  world.fortune.take();
  run(7, "guest-shutdown");
  world.advance(400);
  EXPECT_THAT(world.fortune.take(), IsEmpty());
  EXPECT_EQ(world.hostStatus->vmProcess("web1")->actual(), "stopped");
}

TEST_F(VmPolicyTest, StartsAnyGuestAgainAlways) {
  policyIs("always");
  world.rowIs("web1", on);
  world.fortune.take();
  run(7, "guest-shutdown");
  world.advance(1);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
}

TEST_F(VmPolicyTest, GoesByWhatTheShimTellsOfTheEndLast) {
  policyIs("on-failure");
  world.rowIs("web1", on);
  tell(7, guest::event::started);
  tell(7, guest::event::resumed);
  world.fortune.take();
  world.shims.lastErrors["web1"] = "warning: something is deprecated";
  world.shims.catchingUp = [this](const rt::String& /*vm*/) {
    tell(7, guest::event::shutDown, "guest-shutdown");
    tell(7, guest::event::end);
  };
  world.end("web1");
  EXPECT_EQ(world.hostStatus->vmProcess("web1")->nextAt(), 0U);
  world.advance(400);
  EXPECT_THAT(world.fortune.take(), IsEmpty());
}

TEST_F(VmPolicyTest, GoesByWhatTheHostSeesOfAGuestOfWhichNobodyTells) {
  policyIs("on-failure");
  world.rowIs("web1", on);
  world.shims.lastErrors["web1"] = "could not open disk image";
  world.fortune.take();
  world.end("web1");
  world.advance(1);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
  world.end("web1");
  world.advance(400);
  EXPECT_THAT(world.fortune.take(), IsEmpty()) << "in order";
}

TEST_F(VmPolicyTest, IsInForceAtOnce) {
  world.rowIs("web1", on);
  run(7, "guest-panic");
  world.fortune.take();
  policyIs("always");
  policyIs("no");
  world.advance(400);
  EXPECT_THAT(world.fortune.take(), IsEmpty());
  policyIs("always");
  world.advance(2);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
}

TEST_F(VmPolicyTest, StartsNoVmAgainThatAnOperatorHasStopped) {
  policyIs("always");
  world.rowIs("web1", on);
  world.fortune.take();
  world.rowIs("web1", off);
  run(7, "");
  world.advance(400);
  EXPECT_THAT(world.fortune.take(), ElementsAre("kill web1"));
}

TEST_F(VmPolicyTest, IsNotSaidOfAStartThatWasTriedAgain) {
  world.rowIs("web1", on);
  run(7, "guest-panic");
  policyIs("always");
  world.fortune.startFails.insert("web1");
  world.restartIs("web1", 1);
  world.settle();
  world.fortune.startFails.clear();
  world.advance(10);
  tell(8, guest::event::started);
  tell(8, guest::event::resumed);
  EXPECT_EQ(world.hostStatus->vmProcess("web1")->actual(), "running");
  EXPECT_EQ(world.hostStatus->vmProcess("web1")->why(), "");
}

TEST_F(VmPolicyTest, IsSaidForTenMinutesOfAVmThatItHasStarted) {
  policyIs("always");
  world.rowIs("web1", on);
  run(7, "guest-panic");
  world.advance(1);
  tell(8, guest::event::started);
  tell(8, guest::event::resumed);
  const auto record = world.hostStatus->vmProcess("web1");
  EXPECT_EQ(record->actual(), "running");
  EXPECT_EQ(record->why(), "it was started again: the guest panicked, after 0 s");
  EXPECT_EQ(record->severity(), "note");
}

}  // namespace
}  // namespace host
