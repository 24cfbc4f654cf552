// What a session makes of replies: which belong to the request in flight, and what is published.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Vm/Monitor/fakes/MonitorSession.h"
#include "runtime/fakes/ChangeRecorder.h"
#include "runtime/fakes/TraceRecorder.h"

namespace Vm {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Lines = std::vector<std::string>;

class MonitorReply : public testing::Test, protected fakes::MonitorSession {
 protected:
  MonitorReply() { connect(); }

  uint32_t add() {
    return issue(MonitorCommand::backendAdd, fakes::backendArgs(0, "tap1", "net1", "nic1"));
  }
  uint32_t del() {
    return issue(MonitorCommand::backendDel, fakes::backendArgs(0, "tap1", "net1"));
  }
  QmpIdTypes pendingId() const { return session->qmpPendingRequest().id; }
};

TEST_F(MonitorReply, IsPublishedInOrderWithTheCounterLast) {
  output->cmdStatusIs(MonitorOutput::MonitorCommandStatus::failure);
  const auto changes = rt::make<rt::fakes::ChangeRecorder>();
  changes->watch(output);
  issue(MonitorCommand::startVm);
  hear(fakes::returnOf("cont"));
  EXPECT_THAT(changes->take(),
              ElementsAre("Vm::MonitorOutput.cmd = startVm",
                          "Vm::MonitorOutput.cmdStatus = success", "Vm::MonitorOutput.val = cont",
                          "Vm::MonitorOutput.cmdId = 4", "Vm::MonitorOutput.counter = 3"));
}

TEST_F(MonitorReply, EqualToTheLastButItsIdIsToldByIdAndCounterAlone) {
  issue(MonitorCommand::startVm);
  hear(fakes::returnOf("cont"));
  const auto changes = rt::make<rt::fakes::ChangeRecorder>();
  changes->watch(output);
  issue(MonitorCommand::startVm);
  hear(fakes::returnOf("cont"));
  EXPECT_THAT(changes->take(),
              ElementsAre("Vm::MonitorOutput.cmdId = 5", "Vm::MonitorOutput.counter = 4"));
}

TEST_F(MonitorReply, EqualToTheLastInAllIsToldByTheCounter) {
  issue(MonitorCommand::startVm);
  hear(fakes::returnOf("cont"));
  const auto changes = rt::make<rt::fakes::ChangeRecorder>();
  changes->watch(output);
  hear(fakes::returnOf("cont"));  // QEMU says it twice; nothing is in flight
  EXPECT_THAT(changes->take(), ElementsAre("Vm::MonitorOutput.counter = 4"));
}

TEST_F(MonitorReply, WithAnotherIdLeavesTheRequestInFlight) {
  del();
  peer.take();
  for (const char* id : {"status", "enter", "cont", "chardev", "netdev", "getfd", "closefd", "x"}) {
    const std::string value = id == std::string("status") ? "{\"running\": true}" : "[]";
    hear(fakes::returnOf(id, value) + fakes::errorOf(id));
  }
  EXPECT_TRUE(session->isPendingRequest());
  EXPECT_EQ(pendingId(), QmpIdTypes::setlink);
  EXPECT_EQ(session->qmpRequests(), 2U);
  EXPECT_THAT(peer.takeTexts(), IsEmpty());
  EXPECT_THAT(reader->take(), IsEmpty());
}

TEST_F(MonitorReply, WithStatusWhileANetdevIsPendingChangesNothingUntilItsOwnComes) {
  add();
  hear(fakes::returnOf("getfd"));
  ASSERT_EQ(pendingId(), QmpIdTypes::netdev);
  const rt::Seconds wakeUp = clock->nextWakeUpTime();
  clock->nowIs(rt::Seconds(1002));
  hear(fakes::returnOf("status", "{\"running\": true}"));
  EXPECT_EQ(pendingId(), QmpIdTypes::netdev);
  EXPECT_TRUE(session->isPendingRequest());
  EXPECT_EQ(clock->nextWakeUpTime(), wakeUp);
  converse();
  EXPECT_THAT(reader->take(), ElementsAre("backendAdd 4 success setlink"));
}

TEST_F(MonitorReply, WithoutAnIdIsIgnoredWhenItIsAnError) {
  issue(MonitorCommand::startVm);
  hear("{\"error\": {\"class\": \"GenericError\", \"desc\": \"JSON parse error\"}}\r\n");
  EXPECT_TRUE(session->isPendingRequest());
  EXPECT_EQ(pendingId(), QmpIdTypes::cont);
}

TEST_F(MonitorReply, WithAnIdThatIsNoTextIsIgnored) {
  issue(MonitorCommand::startVm);
  hear("{\"return\": {}, \"id\": 5}\r\n{\"return\": {}, \"id\": null}\r\n");
  EXPECT_TRUE(session->isPendingRequest());
  EXPECT_THAT(reader->take(), IsEmpty());
}

TEST_F(MonitorReply, ThatIsAnEventIsIgnored) {
  issue(MonitorCommand::startVm);
  hear(fakes::eventOf("RESUME"));
  EXPECT_TRUE(session->isPendingRequest());
  EXPECT_THAT(reader->take(), IsEmpty());
}

TEST_F(MonitorReply, ToAnEarlyRequestPublishesNothing) {
  add();
  hear(fakes::returnOf("getfd"));
  hear(fakes::returnOf("netdev"));
  hear(fakes::returnOf("netdev"));
  EXPECT_THAT(reader->take(), IsEmpty());
  hear(fakes::returnOf("setlink"));
  EXPECT_THAT(reader->take(), ElementsAre("backendAdd 4 success setlink"));
}

TEST_F(MonitorReply, ThatIsAnErrorToAnEarlyRequestDoesNotStopTheLaterOnes) {
  for (const char* command : {"getfd", "netdev_add", "netdev_set"}) peer.refusalIs(command);
  add();
  EXPECT_THAT(converse(), SizeIs(4));
  EXPECT_THAT(reader->take(), ElementsAre("backendAdd 4 success setlink"));
}

TEST_F(MonitorReply, ThatIsAnErrorToTheLastRequestPublishesNothingAndGoesOn) {
  peer.refusalIs("netdev_del");
  del();
  issue(MonitorCommand::startVm);
  const auto changes = rt::make<rt::fakes::ChangeRecorder>();
  changes->watch(output);
  for (int i = 0; i < 3; ++i) {  // the last is refused
    peer.answer();
    turn();
  }
  EXPECT_THAT(changes->take(), IsEmpty());
  EXPECT_TRUE(session->isPendingRequest());
  EXPECT_EQ(pendingId(), QmpIdTypes::cont);
  converse();
  EXPECT_THAT(reader->take(), ElementsAre("startVm 5 success cont"));
}

TEST_F(MonitorReply, ThatIsAnErrorEndsTheWait) {
  issue(MonitorCommand::startVm);
  hear(fakes::errorOf("cont"));
  EXPECT_FALSE(session->isPendingRequest());
  advance(60);
  EXPECT_THAT(reader->take(), IsEmpty());
}

TEST_F(MonitorReply, ToTheCommandInFlightCarriesItsIdAlthoughLaterOnesWereIssued) {
  issue(MonitorCommand::queryStatus);
  issue(MonitorCommand::queryChardev);
  issue(MonitorCommand::startVm);
  hear(fakes::returnOf("status", "{\"running\": false}"));
  EXPECT_THAT(reader->take(), ElementsAre("queryStatus 4 success Stopped"));
}

TEST_F(MonitorReply, WithAStatusThatIsNoneLeavesTheRequestInFlight) {
  issue(MonitorCommand::queryStatus);
  hear(fakes::returnOf("status", "{\"running\": 1}"));
  EXPECT_TRUE(session->isPendingRequest());
  advance(5);
  EXPECT_THAT(reader->take(), ElementsAre("queryChardev 3 failure "));
}

TEST_F(MonitorReply, WithoutCharacterDevicesHasAnEmptyValue) {
  issue(MonitorCommand::queryChardev);
  hear(fakes::returnOf("chardev", "[]"));
  EXPECT_THAT(reader->take(), ElementsAre("queryChardev 4 success "));
}

TEST_F(MonitorReply, SeveralInOneReadAreTakenInTheirOrder) {
  issue(MonitorCommand::queryStatus);
  issue(MonitorCommand::startVm);
  issue(MonitorCommand::queryStatus);
  hear(fakes::returnOf("status", "{\"running\": false}") + fakes::eventOf("RESUME") +
       fakes::returnOf("cont") + fakes::returnOf("status", "{\"running\": true}"));
  EXPECT_THAT(reader->take(), ElementsAre("queryStatus 4 success Stopped", "startVm 5 success cont",
                                          "queryStatus 6 success Running"));
}

// The parser's counter is what a session looks at.
TEST_F(MonitorReply, WithAParserCounterOfZeroIsIgnored) {
  issue(MonitorCommand::startVm);
  session->qmpParserResponse()->qmpTypeIs(QmpTypes::qmpTypeReturn);
  session->qmpParserResponse()->qmpIdTypeIs(QmpIdTypes::cont);
  session->qmpParserResponse()->counterIs(0);
  EXPECT_TRUE(session->isPendingRequest());
  EXPECT_THAT(reader->take(), IsEmpty());
}

TEST_F(MonitorReply, IsTraced) {
  issue(MonitorCommand::startVm);
  rt::fakes::TraceRecorder traces;
  hear(fakes::returnOf("status", "{\"running\": true}"));
  EXPECT_THAT(traces.take(8), Contains("void Vm::MonitorSm::handleParserResult() id1: status id2: "
                                       "cont cmd: startVm val: Running"));
}

}  // namespace

}  // namespace Vm
