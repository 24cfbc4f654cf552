// When a session sends what it has queued: one request at a time, in order.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Vm/Monitor/fakes/MonitorSession.h"
#include "runtime/fakes/TraceRecorder.h"

namespace Vm {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using Lines = std::vector<std::string>;

// The ids that requests carry, in place of the whole texts.
Lines idsOf(const Lines& requests) {
  Lines ids;
  for (const std::string& text : requests) {
    const auto from = text.rfind("\"id\": \"") + 7;
    ids.push_back(text.substr(from, text.find('"', from) - from));
  }
  return ids;
}

class MonitorQueueing : public testing::Test, protected fakes::MonitorSession {
 protected:
  // Of the requests in the queue, from the front.
  std::vector<uint32_t> queuedCommandIds() const {
    std::vector<uint32_t> ids;
    for (const auto& [index, request] : session->qmpRequestQueue()) ids.push_back(request.cmdId);
    return ids;
  }

  const MonitorCommandArgs::Ptr args_ = fakes::backendArgs(0, "tap1", "net1", "nic1");
};

TEST_F(MonitorQueueing, BackendAddBeforeTheGreetingQueuesFourAndWritesNone) {
  issue(MonitorCommand::backendAdd, args_);
  turn();
  EXPECT_EQ(session->qmpRequests(), 5U);  // the capabilities request is the first
  EXPECT_THAT(peer.takeTexts(), IsEmpty());
}

TEST_F(MonitorQueueing, WhatWasQueuedBeforeTheGreetingComesBetweenCapabilitiesAndOwnQuestions) {
  issue(MonitorCommand::backendAdd, args_);
  hear(fakes::greeting());
  EXPECT_THAT(idsOf(converse()),
              ElementsAre("enter", "getfd", "netdev", "netdev", "setlink", "status", "chardev"));
  EXPECT_THAT(reader->take(), ElementsAre("connected", "backendAdd 2 success setlink",
                                          "queryStatus 3 success Running",
                                          "queryChardev 4 success pty:/dev/pts/3"));
}

TEST_F(MonitorQueueing, EachReplyReleasesExactlyTheNextRequest) {
  connect();
  for (const auto cmd :
       {MonitorCommand::queryStatus, MonitorCommand::startVm, MonitorCommand::queryChardev})
    issue(cmd);
  EXPECT_THAT(idsOf(peer.takeTexts()), ElementsAre("status"));
  turn();
  EXPECT_THAT(peer.takeTexts(), IsEmpty());
  hear(fakes::returnOf("status", "{\"running\": true}"));
  EXPECT_THAT(idsOf(peer.takeTexts()), ElementsAre("cont"));
  hear(fakes::returnOf("cont"));
  EXPECT_THAT(idsOf(peer.takeTexts()), ElementsAre("chardev"));
  hear(fakes::returnOf("chardev", "[]"));
  EXPECT_THAT(peer.takeTexts(), IsEmpty());
  EXPECT_EQ(session->qmpRequests(), 0U);
}

TEST_F(MonitorQueueing, LastReplyLeavesNothingToWrite) {
  connect();
  issue(MonitorCommand::startVm);
  EXPECT_EQ(session->qmpRequests(), 0U);
  peer.answer();
  turn();
  EXPECT_FALSE(session->isPendingRequest());
  EXPECT_THAT(peer.takeTexts(), IsEmpty());
}

TEST_F(MonitorQueueing, CommandIdsAreConsecutive) {
  connect();
  const uint32_t first = issue(MonitorCommand::queryStatus);
  EXPECT_EQ(issue(MonitorCommand::queryStatus), first + 1);
  EXPECT_EQ(issue(MonitorCommand::queryStatus), first + 2);
  converse();
  EXPECT_THAT(reader->take(),
              ElementsAre("queryStatus 4 success Running", "queryStatus 5 success Running",
                          "queryStatus 6 success Running"));
}

TEST_F(MonitorQueueing, AllRequestsOfACommandCarryItsId) {
  issue(MonitorCommand::backendAdd, args_);
  issue(MonitorCommand::backendDel, args_);
  EXPECT_THAT(queuedCommandIds(), ElementsAre(1U, 2U, 2U, 2U, 2U, 3U, 3U, 3U));
  for (const auto& [index, request] : session->qmpRequestQueue()) {
    if (request.cmdId == 2) {
      EXPECT_EQ(request.cmd, MonitorCommand::backendAdd);
    } else if (request.cmdId == 3) {
      EXPECT_EQ(request.cmd, MonitorCommand::backendDel);
    }
  }
}

TEST_F(MonitorQueueing, OnlyTheLastRequestOfACommandHasNoMore) {
  session->qmpRequestDelAll();
  issue(MonitorCommand::backendAdd, args_);
  issue(MonitorCommand::backendDel, args_);
  issue(MonitorCommand::queryStatus);
  std::vector<bool> more;
  for (const auto& [index, request] : session->qmpRequestQueue()) more.push_back(request.more);
  EXPECT_THAT(more, ElementsAre(true, true, true, false, true, true, false, false));
}

TEST_F(MonitorQueueing, SettingCmdAloneIssuesNothing) {
  connect();
  input->cmdIs(MonitorCommand::startVm);
  input->cmdArgsIs(args_);
  turn();
  EXPECT_THAT(peer.takeTexts(), IsEmpty());
  EXPECT_EQ(session->qmpRequests(), 0U);
}

TEST_F(MonitorQueueing, CounterOfZeroIsIgnored) {
  connect();
  input->counterIs(0);
  turn();
  EXPECT_THAT(peer.takeTexts(), IsEmpty());
  EXPECT_EQ(session->qmpRequests(), 0U);
}

TEST_F(MonitorQueueing, AnyChangeOfTheCounterIssues) {
  connect();
  input->cmdIs(MonitorCommand::queryStatus);
  input->counterIs(77);
  converse();
  input->counterIs(5);
  converse();
  EXPECT_THAT(reader->take(),
              ElementsAre("queryStatus 77 success Running", "queryStatus 5 success Running"));
}

TEST_F(MonitorQueueing, ReaderThatIssuesACommandWithinTheNotificationGetsIt) {
  connect();
  int rounds = 0;
  reader->onResult = [&] {
    if (++rounds < 4) issue(MonitorCommand::queryStatus);
  };
  issue(MonitorCommand::startVm);
  EXPECT_THAT(idsOf(converse()), ElementsAre("cont", "status", "status", "status"));
  EXPECT_THAT(reader->take(),
              ElementsAre("startVm 4 success cont", "queryStatus 5 success Running",
                          "queryStatus 6 success Running", "queryStatus 7 success Running"));
}

TEST_F(MonitorQueueing, CommandOfAReaderComesAfterWhatIsQueued) {
  connect();
  reader->onResult = [&] {
    if (output->cmd() == MonitorCommand::startVm) issue(MonitorCommand::queryStatus);
  };
  issue(MonitorCommand::startVm);
  issue(MonitorCommand::queryChardev);
  EXPECT_THAT(idsOf(converse()), ElementsAre("cont", "chardev", "status"));
}

TEST_F(MonitorQueueing, UnknownCommandIsTracedAndQueuesNothing) {
  connect();
  rt::fakes::TraceRecorder traces;
  issue(static_cast<MonitorCommand>(6));
  EXPECT_THAT(traces.take(1), ElementsAre("sendCommand FAIL: unknown monitor command: 6"));
  EXPECT_EQ(session->qmpRequests(), 0U);
  EXPECT_THAT(peer.takeTexts(), IsEmpty());
  EXPECT_THAT(reader->take(), IsEmpty());
}

TEST_F(MonitorQueueing, IsUsableAfterAnUnknownCommand) {
  connect();
  issue(static_cast<MonitorCommand>(200));
  issue(MonitorCommand::startVm);
  converse();
  EXPECT_THAT(reader->take(), ElementsAre("startVm 5 success cont"));
}

TEST_F(MonitorQueueing, IsTraced) {
  connect();
  rt::fakes::TraceRecorder traces;
  issue(MonitorCommand::backendDel, args_);
  const Lines lines = traces.take(8);
  EXPECT_THAT(lines, Contains("void Vm::MonitorSm::sendCommand() command: backendDel"));
  for (const char* name : {"backendId", "fdname", "nicId"})
    EXPECT_THAT(lines, Contains(testing::StartsWith("arg[" + std::string(name) + "] ")));
  EXPECT_THAT(lines,
              Contains(testing::AllOf(testing::StartsWith("void Vm::MonitorSm::qmpQueueRequest("),
                                      testing::HasSubstr(" req: { \"execute\": \"set_link\""),
                                      testing::HasSubstr(" id: setlink fd: "),
                                      testing::EndsWith(" more: true"))));
  EXPECT_THAT(lines, Contains("void Vm::MonitorSm::checkAndSendRequest() isPendingRequest: false "
                              "number of queued requests: 1"));
  EXPECT_THAT(lines, Contains("void Vm::MonitorSm::checkAndSendRequest() isPendingRequest: true "
                              "number of queued requests: 2"));
}

}  // namespace

}  // namespace Vm
