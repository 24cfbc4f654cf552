// The agent's own monitor session, with a relay and a QEMU behind it.
#include <gmock/gmock.h>

#include "Vm/Monitor/fakes/MonitorSession.h"
#include "runtime/fakes/TraceRecorder.h"
#include "shim/fakes/RelayWorld.h"

namespace shim {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::StartsWith;
using Vm::MonitorCommand;

class AgentSession : public testing::Test, protected Vm::fakes::MonitorSession {
 protected:
  AgentSession() {
    world.qemuSays(fakes::FakeQemu::greeting());
    world.connectAgent();
    settle();
  }
  // All that is said is heard.
  void settle() {
    do {
      for (const std::string& line : world.heard()) peer.send(line);
      turn();
    } while (carry());
  }
  // What the session wrote goes to the relay; whether there was any.
  bool carry() {
    auto requests = peer.take();
    for (auto& request : requests) {
      rt::Descriptors descriptors;
      for (auto& given : request.descriptors) descriptors.emplace_back(given.release());
      for (const std::string& answer : world.ask(request.text, std::move(descriptors)))
        peer.send(answer);
    }
    return !requests.empty();
  }
  // On both clocks.
  void passSeconds(int seconds) {
    for (int i = 0; i < 2 * seconds; ++i) {
      world.pass(Duration(500));
      settle();
      advance(0.5);
      settle();
    }
  }
  void attachCard() {
    issue(MonitorCommand::backendAdd, Vm::fakes::backendArgs(static_cast<uint32_t>(tap.number()),
                                                             "fd-hostnet0", "hostnet0", "net0"));
    settle();
  }
  void detachCard() {
    issue(MonitorCommand::backendDel, Vm::fakes::backendArgs(0, "fd-hostnet0", "hostnet0"));
    settle();
  }

  const rt::fakes::TraceRecorder traces;
  const rt::Descriptor tap{dup(STDERR_FILENO)};
  fakes::RelayWorld world;
};

TEST_F(AgentSession, IsConnectedAndLearnsOfStateAndConsole) {
  EXPECT_THAT(reader->take(), ElementsAre("connected", "queryStatus 2 success Running",
                                          "queryChardev 3 success pty:/dev/pts/7"));
}

TEST_F(AgentSession, AttachesAndDetachesCards) {
  reader->take();
  for (int i = 0; i < 3; ++i) {
    attachCard();
    EXPECT_THAT(reader->take(), ElementsAre(StartsWith("backendAdd")));
    EXPECT_THAT(world.qemu.netdevs(), Contains(Pair("hub-hostnet0", "hostnet0")));
    EXPECT_TRUE(world.qemu.hasLink("net0"));
    detachCard();
    EXPECT_THAT(reader->take(), ElementsAre(StartsWith("backendDel")));
    EXPECT_FALSE(world.qemu.hasLink("net0"));
  }
  EXPECT_THAT(world.problems, IsEmpty());
}

TEST_F(AgentSession, KeepsItsLastKnownStateWhileQemuIsSilent) {
  reader->take();
  world.qemu.stop();
  for (int i = 0; i < 5; ++i) {
    issue(MonitorCommand::queryStatus);
    issue(MonitorCommand::queryChardev);
    passSeconds(10);
  }
  EXPECT_THAT(reader->take(), IsEmpty());
  world.qemuGoes();
  issue(MonitorCommand::queryStatus);
  settle();
  EXPECT_THAT(reader->take(), ElementsAre(testing::EndsWith("success Running")));
}

TEST_F(AgentSession, LeavesNoCardHalfWayWhileQemuIsSilent) {
  attachCard();
  reader->take();
  world.qemu.stop();
  detachCard();
  passSeconds(4);
  EXPECT_THAT(reader->take(), ElementsAre(StartsWith("backendDel")));
  attachCard();
  EXPECT_THAT(reader->take(), ElementsAre(StartsWith("backendAdd")));
  world.qemuGoes();
  settle();
  EXPECT_THAT(world.qemu.netdevs(), Contains(Pair("hub-hostnet0", "hostnet0")));
  EXPECT_TRUE(world.qemu.hasLink("net0"));
  EXPECT_THAT(world.problems, IsEmpty());
}

TEST_F(AgentSession, CanDetachACardThatCouldNotBeAttached) {
  reader->take();
  world.qemu.refusalIs("netdev_add", "no room");
  attachCard();
  EXPECT_THAT(reader->take(), ElementsAre(StartsWith("backendAdd")));
  detachCard();
  EXPECT_THAT(reader->take(), ElementsAre(StartsWith("backendDel")));
  EXPECT_THAT(world.problems, Each(testing::HasSubstr("hostnet0")));
  EXPECT_EQ(world.problems.size(), 3U);
}

TEST_F(AgentSession, IsNotBotheredByEvents) {
  reader->take();
  for (int i = 0; i < 1'000; ++i)
    world.qemuSays(R"({"timestamp": {"seconds": 1, "microseconds": 2}, "event": "RTC_CHANGE"})");
  settle();
  EXPECT_THAT(reader->take(), IsEmpty());
}

}  // namespace
}  // namespace shim
