// In which order VMs are started when the daemon begins.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/fakes/SupervisorWorld.h"

namespace host {
namespace {

using fakes::off;
using fakes::on;
using fakes::SupervisorWorld;
using testing::ElementsAre;
using testing::IsEmpty;

class StartOrderTest : public testing::Test {
 protected:
  // A row that is there before the daemon begins.
  void has(const char* vm, int number, int delay = 0, bool isOn = true) {
    const rt::String doc = rt::format(R"({"startOrder":%d,"startDelay":%d})", number, delay);
    world.own.rowIs("vmPolicy", vm, statedb::Record{"vmPolicy", vm, doc, 1, 1});
    world.apply({world.put(vm, (isOn ? on : off).doc())});
  }
  std::vector<std::string> begin() {
    world.supervisor->begin();
    world.settle();
    return world.fortune.take();
  }
  std::vector<std::string> after(double seconds) {
    world.advance(seconds);
    return world.fortune.take();
  }
  rt::String why(const char* vm) { return world.hostStatus->vmProcess(vm)->why(); }

  SupervisorWorld world;
};

TEST_F(StartOrderTest, IsByNumberThenByNameAndTheOthersComeLast) {
  has("a", 0);
  has("b", 2);
  has("c", 10);
  has("d", 2);
  has("e", 1);
  EXPECT_THAT(begin(), ElementsAre("start e", "start b", "start d", "start c", "start a"));
}

TEST_F(StartOrderTest, WaitsAsLongAsTheOneBeforeHasSaid) {
  has("db", 1, 20);
  has("web", 2);
  has("other", 0);
  EXPECT_THAT(begin(), ElementsAre("start db"));
  const auto web = world.hostStatus->vmProcess("web");
  EXPECT_EQ(web->actual(), "starting");
  EXPECT_EQ(web->why(), "it is started after db");
  EXPECT_EQ(web->nextAt(), 1020U);
  EXPECT_EQ(why("other"), "it is started after web");
  EXPECT_EQ(world.hostStatus->vmProcess("other")->next(), "is started after web");
  EXPECT_THAT(after(19), IsEmpty());
  EXPECT_THAT(after(1), ElementsAre("start web", "start other"));
  EXPECT_EQ(why("web"), "");
}

TEST_F(StartOrderTest, WaitsForTheDelayOfTheLastThatHasANumber) {
  has("db", 1, 20);
  has("other", 0);
  EXPECT_THAT(begin(), ElementsAre("start db"));
  EXPECT_THAT(after(20), ElementsAre("start other"));
}

TEST_F(StartOrderTest, PassesOverWhatIsOffOrThere) {
  has("a", 1, 20, false);
  has("b", 2, 20);
  has("c", 3);
  world.supervisor->adoptableIs("b", true);
  EXPECT_THAT(begin(), testing::UnorderedElementsAre("start b", "took up b", "start c"));
}

TEST_F(StartOrderTest, GoesOnBehindAVmThatCannotBeStarted) {
  has("refused", 1);
  has("fails", 2);
  has("web", 3);
  world.budget.refusals["refused"] = "memory: too little";
  world.fortune.startFails.insert("fails");
  EXPECT_THAT(begin(), ElementsAre("fail fails", "start web"));
}

TEST_F(StartOrderTest, WaitsForNoImageLongerThanHalfAMinute) {
  has("slow", 1);
  has("web", 2);
  world.images.unseen.insert("/images/web.iso");
  EXPECT_THAT(begin(), IsEmpty());
  EXPECT_THAT(after(29), IsEmpty());
  EXPECT_EQ(why("web"), "it is started after slow");
  EXPECT_THAT(after(1), IsEmpty()) << "its image is not known either";
  EXPECT_EQ(why("web"), "");
  world.images.unseen.clear();
  world.supervisor->imageIsKnown("web");
  world.settle();
  EXPECT_THAT(after(0), ElementsAre("start web"));
}

TEST_F(StartOrderTest, GoesOnWhenTheNextOneIsSwitchedOffMeanwhile) {
  has("db", 1, 20);
  has("web", 2, 3000);
  has("other", 3);
  begin();
  world.rowIs("web", off);
  EXPECT_THAT(after(19), IsEmpty()) << "db asked for that";
  EXPECT_THAT(after(1), ElementsAre("start other"));
}

TEST_F(StartOrderTest, HoldsUpNobodyWhoIsSwitchedOnLater) {
  has("db", 1, 3000);
  has("web", 2);
  has("other", 0);
  begin();
  world.rowIs("new", on);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start new"));
  world.rowIs("other", off);
  world.rowIs("other", on);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start other"));
  world.rowIs("db", off);
  world.end("db");
  world.fortune.take();
  world.rowIs("db", on);
  EXPECT_THAT(world.fortune.take(), ElementsAre("start db"));
}

TEST_F(StartOrderTest, IsNoneWhereNobodyHasANumber) {
  has("b", 0, 20);
  has("a", 0, 20);
  EXPECT_THAT(begin(), ElementsAre("start b", "start a")) << "as their rows come";
}

}  // namespace
}  // namespace host
