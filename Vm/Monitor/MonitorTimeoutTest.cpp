// A request that gets no answer is given up after 5 s.
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
using Lines = std::vector<std::string>;
using MonitorState = MonitorStatus::MonitorState;

// Connected; the last result was queryChardev's, whose id is 3.
class MonitorTimeout : public testing::Test, protected fakes::MonitorSession {
 protected:
  MonitorTimeout() { connect(); }

  void add() { issue(MonitorCommand::backendAdd, fakes::backendArgs(0, "tap1", "net1", "nic1")); }
  QmpIdTypes pendingId() const { return session->qmpPendingRequest().id; }
};

TEST_F(MonitorTimeout, IsArmedToFiveSecondsOnEveryRequest) {
  add();
  EXPECT_EQ(clock->nextWakeUpTime(), clock->now() + rt::Seconds(5));
  for (const char* id : {"getfd", "netdev", "netdev"}) {
    advance(1.5);
    hear(fakes::returnOf(id));
    EXPECT_EQ(clock->nextWakeUpTime(), clock->now() + rt::Seconds(5)) << id;
  }
}

TEST_F(MonitorTimeout, ComesAfterFiveSecondsAndNotBefore) {
  issue(MonitorCommand::startVm);
  advance(4.999);
  EXPECT_TRUE(session->isPendingRequest());
  EXPECT_THAT(reader->take(), IsEmpty());
  advance(0.001);
  EXPECT_FALSE(session->isPendingRequest());
  EXPECT_THAT(reader->take(), testing::SizeIs(1));
}

TEST_F(MonitorTimeout, PublishesFailureWithoutAValueUnderTheLastResultsCommandAndId) {
  issue(MonitorCommand::startVm);
  const auto changes = rt::make<rt::fakes::ChangeRecorder>();
  changes->watch(output);
  advance(5);
  EXPECT_THAT(changes->take(),
              ElementsAre("Vm::MonitorOutput.cmdStatus = failure",
                          "Vm::MonitorOutput.val = ", "Vm::MonitorOutput.counter = 3"));
  EXPECT_THAT(reader->take(), ElementsAre("queryChardev 3 failure "));
}

TEST_F(MonitorTimeout, RepeatedIsToldByTheCounterAlone) {
  issue(MonitorCommand::startVm);
  advance(5);
  const auto changes = rt::make<rt::fakes::ChangeRecorder>();
  changes->watch(output);
  issue(MonitorCommand::startVm);
  advance(5);
  EXPECT_THAT(changes->take(), ElementsAre("Vm::MonitorOutput.counter = 4"));
}

TEST_F(MonitorTimeout, BeforeAnyResultHasTheDefaultCommandAndId) {
  fakes::QmpPeer another;
  const auto itsOutput = rt::make<MonitorOutput>(0U);
  const auto fd = rt::make<rt::FileDescriptor>("web2-monitor");
  fd->descriptorIs(another.takeSessionEnd());
  fd->nonBlockingIs(true);
  fd->notifyOnReadableIs(true);
  const auto its =
      rt::make<MonitorSm>(rt::make<MonitorInput>(0U), itsOutput,
                          rt::make<MonitorStatus>(MonitorState::uninitialized), fd, clock);
  another.send(fakes::greeting());
  turn();
  advance(5);
  EXPECT_EQ(itsOutput->counter(), 1U);
  EXPECT_EQ(itsOutput->cmd(), MonitorCommand::enterCmdMode);
  EXPECT_EQ(itsOutput->cmdId(), 0U);
  EXPECT_EQ(its->monitorStatus()->state(), MonitorState::uninitialized);
}

TEST_F(MonitorTimeout, OfTheFirstRequestDropsTheRestOfItsCommand) {
  add();
  issue(MonitorCommand::startVm);
  ASSERT_EQ(pendingId(), QmpIdTypes::getfd);
  ASSERT_EQ(session->qmpRequests(), 4U);
  advance(5);
  EXPECT_THAT(reader->take(), ElementsAre("queryChardev 3 failure "));
  EXPECT_EQ(pendingId(), QmpIdTypes::cont);
  EXPECT_EQ(session->qmpRequests(), 0U);
}

TEST_F(MonitorTimeout, OfAMiddleRequestDropsTheRestOfItsCommand) {
  add();
  issue(MonitorCommand::startVm);
  hear(fakes::returnOf("getfd"));
  hear(fakes::returnOf("netdev"));
  ASSERT_EQ(session->qmpRequests(), 2U);
  advance(5);
  EXPECT_THAT(reader->take(), ElementsAre("queryChardev 3 failure "));
  EXPECT_EQ(pendingId(), QmpIdTypes::cont);
}

TEST_F(MonitorTimeout, OfTheLastRequestDropsNothing) {
  add();
  issue(MonitorCommand::startVm);
  for (const char* id : {"getfd", "netdev", "netdev"}) hear(fakes::returnOf(id));
  ASSERT_EQ(pendingId(), QmpIdTypes::setlink);
  advance(5);
  EXPECT_THAT(reader->take(), ElementsAre("queryChardev 3 failure "));
  EXPECT_EQ(pendingId(), QmpIdTypes::cont);
}

TEST_F(MonitorTimeout, DropsNothingOfALaterCommandOfSeveralRequests) {
  add();
  issue(MonitorCommand::backendDel, fakes::backendArgs(0, "tap1", "net1"));
  advance(5);
  EXPECT_EQ(pendingId(), QmpIdTypes::setlink);
  EXPECT_EQ(session->qmpPendingRequest().cmdId, 5U);
  EXPECT_EQ(session->qmpRequests(), 2U);
}

TEST_F(MonitorTimeout, WritesTheNextRequestAndArmsItself) {
  issue(MonitorCommand::startVm);
  issue(MonitorCommand::queryStatus);
  peer.take();
  advance(5);
  EXPECT_THAT(peer.takeTexts(),
              ElementsAre("{ \"execute\": \"query-status\",\"id\": \"status\" }\n"));
  EXPECT_EQ(clock->nextWakeUpTime(), clock->now() + rt::Seconds(5));
}

TEST_F(MonitorTimeout, OfEachOfThreeCommandsComesInTurn) {
  for (int i = 0; i < 3; ++i) issue(MonitorCommand::startVm);
  const rt::Seconds start = clock->now();
  std::vector<double> times;
  reader->onResult = [&] { times.push_back((clock->now() - start).value()); };
  advance(60);
  EXPECT_THAT(times, ElementsAre(5, 10, 15));
}

TEST_F(MonitorTimeout, LeavesTheSessionUp) {
  peer.silenceIs("cont");
  issue(MonitorCommand::startVm);
  converse();
  advance(5);
  EXPECT_EQ(status->state(), MonitorState::connected);
  reader->take();
  issue(MonitorCommand::queryStatus);
  converse();
  EXPECT_THAT(reader->take(), ElementsAre("queryStatus 5 success Running"));
}

TEST_F(MonitorTimeout, WithoutAPendingRequestDoesNothing) {
  const auto changes = rt::make<rt::fakes::ChangeRecorder>();
  changes->watch(output);
  changes->watch(session);
  advance(3600);
  EXPECT_THAT(changes->take(), IsEmpty());
}

TEST_F(MonitorTimeout, IsVoidOnceTheReplyHasCome) {
  issue(MonitorCommand::startVm);
  advance(4.9);
  converse();
  reader->take();
  advance(60);
  EXPECT_THAT(reader->take(), IsEmpty());
}

TEST_F(MonitorTimeout, ReplyThatWaitsInTheSocketAtThatTimeIsInTime) {
  issue(MonitorCommand::startVm);
  peer.answer();
  advance(5);
  EXPECT_THAT(reader->take(), ElementsAre("startVm 4 success cont"));
}

TEST_F(MonitorTimeout, LateReplyIsIgnoredWhileAnotherRequestIsPending) {
  issue(MonitorCommand::startVm);
  issue(MonitorCommand::queryStatus);
  advance(5);
  reader->take();
  hear(fakes::returnOf("cont"));
  EXPECT_THAT(reader->take(), IsEmpty());
  EXPECT_TRUE(session->isPendingRequest());
  EXPECT_EQ(pendingId(), QmpIdTypes::status);
}

// The request given up stays the one that replies are compared with until another is written.
TEST_F(MonitorTimeout, LateReplyIsPublishedWhenNothingWasWrittenSince) {
  issue(MonitorCommand::startVm);
  advance(5);
  reader->take();
  hear(fakes::returnOf("cont"));
  EXPECT_THAT(reader->take(), ElementsAre("startVm 4 success cont"));
  EXPECT_FALSE(session->isPendingRequest());
}

TEST_F(MonitorTimeout, LateReplyAnswersALaterRequestOfTheSameId) {
  issue(MonitorCommand::queryStatus);
  issue(MonitorCommand::queryStatus);
  advance(5);
  reader->take();
  hear(fakes::returnOf("status", "{\"running\": false}"));
  EXPECT_THAT(reader->take(), ElementsAre("queryStatus 5 success Stopped"));
}

TEST_F(MonitorTimeout, LateReplyToADroppedCommandReleasesNothingOfIt) {
  add();
  advance(5);
  reader->take();
  peer.take();
  hear(fakes::returnOf("getfd"));
  EXPECT_THAT(reader->take(), IsEmpty());
  EXPECT_THAT(peer.takeTexts(), IsEmpty());
}

TEST_F(MonitorTimeout, OfTheCapabilitiesGoesOnWithTheOwnQuestions) {
  hear(fakes::greeting());
  peer.silenceIs("query-status");
  peer.silenceIs("query-chardev");
  converse();
  advance(20);
  EXPECT_EQ(status->state(), MonitorState::connected);
  EXPECT_THAT(reader->take(), ElementsAre("queryChardev 3 failure ", "queryChardev 3 failure "));
}

TEST_F(MonitorTimeout, ReaderThatIssuesACommandWithinTheNotificationGetsIt) {
  issue(MonitorCommand::startVm);
  peer.take();
  reader->onResult = [this] {
    reader->onResult = nullptr;
    issue(MonitorCommand::queryStatus);
  };
  advance(5);
  EXPECT_THAT(converse(), ElementsAre("{ \"execute\": \"query-status\",\"id\": \"status\" }\n"));
}

TEST_F(MonitorTimeout, IsTracedWithItsRequest) {
  issue(MonitorCommand::startVm);
  rt::fakes::TraceRecorder traces;
  advance(5);
  EXPECT_THAT(traces.take(8), Contains("handleTimeout FAIL: QMP message timed out " +
                                       session->qmpPendingRequest().text().str()));
}

using MonitorTimeoutDeathTest = MonitorTimeout;

TEST_F(MonitorTimeoutDeathTest, WithTheRestOfTheCommandMissingEndsTheProcess) {
  add();
  session->qmpRequestDelAll();
  EXPECT_DEATH(advance(5), "assertion failed: qmpRequests\\(\\) != 0\n");
}

TEST_F(MonitorTimeoutDeathTest, WithTheEndOfTheCommandMissingEndsTheProcess) {
  add();
  const auto last = session->qmpRequestQueue().nextIndex() - 1;
  session->qmpRequestDel(last);
  EXPECT_DEATH(advance(5), "assertion failed: qmpRequests\\(\\) != 0\n");
}

}  // namespace

}  // namespace Vm
