// The monitoring ticks of a running VM.
#include "Vm/VmAgent/fakes/AgentFixture.h"

namespace Vm {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* tick = "8 void Vm::VmConfigSm::doMonitorActivity() for web1";
constexpr const char* schedule = "9 void Vm::VmConfigSm::doScheduleMonitoring() for web1";
const std::string queryStatus = "{ \"execute\": \"query-status\",\"id\": \"status\" }\n";
const std::string queryChardev = "{ \"execute\": \"query-chardev\",\"id\": \"chardev\" }\n";

class Monitoring : public AgentFixture {
 protected:
  void SetUp() override {
    web1 = addRunning("web1");
    record = vmStatus("web1");
    recorder->watch(record);
  }
  void notHeardForIs(const char* count) {
    rt::attributeTextIs(*vm("web1")->monSm(), "qmpNotHeardFor", count);
  }
  std::vector<std::string> ask() {
    turn();
    return processes.monitor("web1").answer();
  }

  VmConfig::Ptr web1;
  VmStatus::Ptr record;
};

TEST_F(Monitoring, AsksForTheRunStateEveryFiveSeconds) {
  advance(4.99);
  EXPECT_THAT(withText(said(), "VmConfigSm"), IsEmpty());
  advance(0.01);
  EXPECT_THAT(processes.monitor("web1").answer(), ElementsAre(queryStatus));
  const auto lines = said();
  EXPECT_EQ(withText(lines, "VmConfigSm::doMonitorActivity"), Lines{tick});
  EXPECT_EQ(withText(lines, "doScheduleMonitoring"), Lines{schedule});
  advance(5);
  EXPECT_THAT(processes.monitor("web1").answer(), ElementsAre(queryStatus));
}

TEST_F(Monitoring, AsksForTheConsoleAsWellWhileItIsNotKnown) {
  record->consolePtyPathIs("");
  forget();
  advance(5);
  EXPECT_THAT(converse("web1"), ElementsAre(queryStatus, queryChardev));
  EXPECT_EQ(record->consolePtyPath(), "pty:/dev/pts/3");
  advance(5);
  EXPECT_THAT(converse("web1"), ElementsAre(queryStatus));
}

TEST_F(Monitoring, WritesTheRunStateThatIsAnswered) {
  processes.monitor("web1").valueIs("query-status", "{\"status\": \"paused\", \"running\": false}");
  advance(5);
  converse("web1");
  EXPECT_EQ(record->state(), "Stopped");
}

TEST_F(Monitoring, KeepsTheSessionThatWasNotHeardForNine) {
  const auto session = vm("web1")->monSm();
  notHeardForIs("9");
  advance(5);
  EXPECT_EQ(vm("web1")->monSm(), session);
  EXPECT_EQ(processes.connections("web1"), 1u);
  EXPECT_THAT(converse("web1"), ElementsAre(queryStatus));
}

TEST_F(Monitoring, RebuildsTheSessionThatWasNotHeardForTenAndAsksTheNewOneInTheSameTick) {
  const auto session = vm("web1")->monSm();
  auto& oldQemu = processes.monitor("web1");
  notHeardForIs("10");
  advance(5);
  EXPECT_NE(vm("web1")->monSm(), session);
  EXPECT_TRUE(oldQemu.sessionHasClosed());
  EXPECT_THAT(effects.take(), ElementsAre("connect /var/run/web1.monitor"));
  const auto lines = said();
  EXPECT_EQ(withText(lines, "VmConfigSm::doMonitorActivity").size(), 1u);
  EXPECT_THAT(withText(lines, "Vm::VmConfigSm::sendMonitorCommand"),
              ElementsAre(testing::EndsWith(" cmd: queryStatus")));
  // The handshake, and the new session's own questions, come with the tick's.
  EXPECT_EQ(vm("web1")->monSm()->qmpNotHeardFor(), 0u);
  EXPECT_EQ(vm("web1")->monSm()->qmpRequests(), 2u);
  EXPECT_EQ(vm("web1")->monSm()->qmpRequestBack().cmd, MonitorCommand::queryStatus);
  converse("web1");
  EXPECT_EQ(record->state(), "Running");
  EXPECT_EQ(processes.living(), std::vector<int32_t>{1000});
}

TEST_F(Monitoring, GoesOnEveryFiveSecondsWithTheNewSession) {
  notHeardForIs("4294967295");
  advance(5);
  converse("web1");
  advance(5);
  EXPECT_THAT(converse("web1"), ElementsAre(queryStatus));
}

TEST_F(Monitoring, KillsTheVmAndEndsWhenTheNewSessionFails) {
  notHeardForIs("10");
  processes.refusalsAre("web1", -1);
  advance(5);
  EXPECT_THAT(effects.take(), ElementsAre("kill 1000 15", "VmStatus.consolePtyPath = "));
  const auto lines = said();
  EXPECT_THAT(withText(lines, "FAIL"),
              ElementsAre("1 connectMonitor FAIL: cannot connect to /var/run/web1.monitor",
                          "1 setupMonitor FAIL: cannot connect to qemu monitor ",
                          "1 doMonitorActivity FAIL: cannot reconnect qemu monitor "));
  EXPECT_THAT(withText(lines, "doScheduleMonitoring"), IsEmpty());
  EXPECT_TRUE(record->enabled());
  EXPECT_EQ(record->state(), "Running");
  EXPECT_EQ(vm("web1")->monSm(), nullptr);
  processes.refusalsAre("web1", 0);
  advance(60);
  EXPECT_THAT(withText(said(), "VmConfigSm::doMonitorActivity"), IsEmpty());
}

TEST_F(Monitoring, EndsWithATickThatFindsNoSession) {
  endProcess("web1");
  processes.monitor("web1").close();
  turn();
  ASSERT_EQ(vm("web1")->monSm(), nullptr);
  forget();
  advance(5);
  EXPECT_EQ(withText(said(), "Vm::VmConfigSm"), Lines{tick});
  advance(60);
  EXPECT_THAT(withText(said(), "Vm::VmConfigSm"), IsEmpty());
}

TEST_F(Monitoring, ResumesWithTheNextStart) {
  web1->enabledIs(false);
  endProcess("web1", SIGTERM);
  advance(60);
  web1->enabledIs(true);
  converse("web1");
  forget();
  advance(5);
  EXPECT_THAT(processes.monitor("web1").answer(), ElementsAre(queryStatus));
}

TEST_F(Monitoring, OfOneVmIsIndependentOfAnothers) {
  advance(2);
  converse("web1");
  addRunning("web2");
  advance(3);
  EXPECT_EQ(processes.monitor("web1").takeTexts().size(), 1u);
  EXPECT_THAT(processes.monitor("web2").takeTexts(), IsEmpty());
  advance(2);
  EXPECT_EQ(processes.monitor("web2").takeTexts().size(), 1u);
}

TEST(MonitoringOfADisabledVm, TicksOnceAndAsksNobody) {
  fakes::AgentWorld world;
  world.start();
  world.addVm("web1");
  world.traces.take();
  world.advance(60);
  EXPECT_EQ(withText(world.traces.take(), "Vm::VmConfigSm"), Lines{tick});
}

}  // namespace

}  // namespace Vm
