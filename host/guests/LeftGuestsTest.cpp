// Guests of an earlier daemon's, as they go on or end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/fakes/SupervisorWorld.h"
#include "host/guests/LeftGuests.h"
#include "runtime/fakes/TraceRecorder.h"

namespace host {
namespace {

using fakes::SupervisorWorld;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

// No process of ours has such a number.
constexpr int32_t noProcess = 0x7ffffff0;

class LeftGuestsTest : public testing::Test {
 protected:
  SupervisorWorld world;
  rt::fakes::TraceRecorder traces;
  LeftGuests guests{world.supervisor, world.tools, world.clock};
};

TEST_F(LeftGuestsTest, AreTakenUpByTheirVmsStart) {
  guests.adoptableIs("web1", true);
  world.rowIs("web1", {});
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1", "took up web1"));
}

TEST_F(LeftGuestsTest, KeepTheirVmFromStartingUntilNoneIsLeft) {
  guests.leftIs("web1", 2);
  world.rowIs("web1", {});
  EXPECT_THAT(world.fortune.take(), IsEmpty());
  guests.leftIs("web1", 0);
  world.settle();
  EXPECT_THAT(world.fortune.take(), ElementsAre("start web1"));
}

TEST_F(LeftGuestsTest, AreClearedUpAfterOnceNoneIsLeft) {
  world.shims.deadSockets = {"web1", "web2"};
  world.cards.leaving = {{"web1", {7}}, {"web2", {8}}};
  guests.leftIs("web1", 1);
  EXPECT_THAT(world.aroundStart.endings, IsEmpty());
  EXPECT_THAT(world.shims.deadSockets, ElementsAre("web1", "web2"));
  EXPECT_EQ(world.cards.leaving.size(), 2U);
  guests.leftIs("web1", 0);
  EXPECT_THAT(world.aroundStart.endings, ElementsAre("web1"));
  EXPECT_THAT(world.shims.deadSockets, ElementsAre("web2"));
  EXPECT_THAT(world.cards.leaving, ElementsAre(Pair("web2", ElementsAre(8))));
}

TEST_F(LeftGuestsTest, ThatAreToEndHaveTheirDevicesNotedBefore) {
  guests.end({{"web1", noProcess}, {"web1", noProcess + 1}});
  EXPECT_THAT(world.cards.leaving,
              ElementsAre(Pair("web1", ElementsAre(noProcess, noProcess + 1))));
}

TEST_F(LeftGuestsTest, ThatAreUnknownAreShownAndReportedUntilThatIsSoNoMore) {
  guests.unknownIs({{"web1", noProcess}}, {noProcess, "guest7", "why"});
  guests.leftIs("web1", 1);
  world.settle();
  EXPECT_EQ(world.hostStatus->vmProcess("web1")->unknown(), "guest7");
  EXPECT_THAT(world.cards.noted, ElementsAre(noProcess));
  EXPECT_THAT(traces.take(1), testing::Contains(testing::HasSubstr("not configured")));
  guests.unknownDel("web1");
  world.settle();
  EXPECT_EQ(world.process("web1"), "");
}

}  // namespace
}  // namespace host
