// A session has its request in flight until the result is published: whoever hears of the result
// and issues a command finds it queued behind, and nothing is sent in between.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Vm/Monitor/fakes/MonitorSession.h"
#include "runtime/fakes/ChangeRecorder.h"

namespace Vm {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class MonitorPublication : public testing::Test, protected fakes::MonitorSession {
 protected:
  // Issues a command on the next result, and remembers how that was found.
  void issueOnResult() {
    reader->onResult = [this] {
      reader->onResult = nullptr;
      pendingThen = session->isPendingRequest();
      issue(MonitorCommand::queryStatus);
      sentThen = peer.takeTexts();
      queuedThen = session->qmpRequests();
    };
  }

  bool pendingThen = false;
  std::vector<std::string> sentThen;
  uint32_t queuedThen = 0;
};

TEST_F(MonitorPublication, OfAReturnComesBeforeItsRequestIsOver) {
  connect();
  issue(MonitorCommand::startVm);
  peer.takeTexts();
  issueOnResult();
  hear(fakes::returnOf("cont"));
  EXPECT_TRUE(pendingThen);
  EXPECT_THAT(sentThen, IsEmpty());
  EXPECT_EQ(queuedThen, 1U);
  EXPECT_THAT(peer.takeTexts(),
              ElementsAre("{ \"execute\": \"query-status\",\"id\": \"status\" }\n"));
}

TEST_F(MonitorPublication, OfATimeOutComesBeforeItsRequestIsOver) {
  connect();
  issue(MonitorCommand::startVm);
  peer.takeTexts();
  issueOnResult();
  advance(5);
  EXPECT_TRUE(pendingThen);
  EXPECT_THAT(sentThen, IsEmpty());
  EXPECT_EQ(queuedThen, 1U);
  EXPECT_THAT(peer.takeTexts(),
              ElementsAre("{ \"execute\": \"query-status\",\"id\": \"status\" }\n"));
}

TEST_F(MonitorPublication, OfTheConnectionComesBeforeTheCapabilitiesRequestIsOver) {
  bool pendingWhenConnected = false;
  reader->onState = [&] { pendingWhenConnected = session->isPendingRequest(); };
  hear(fakes::greeting());
  hear(fakes::returnOf("enter"));
  EXPECT_EQ(status->state(), MonitorStatus::MonitorState::connected);
  EXPECT_TRUE(pendingWhenConnected);
}

TEST_F(MonitorPublication, IsFollowedByTheEndOfTheRequest) {
  connect();
  issue(MonitorCommand::startVm);
  const auto changes = rt::make<rt::fakes::ChangeRecorder>();
  changes->watch(output);
  changes->watch(session);
  hear(fakes::returnOf("cont"));
  EXPECT_THAT(changes->take(),
              ElementsAre("Vm::MonitorOutput.cmd = startVm", "Vm::MonitorOutput.val = cont",
                          "Vm::MonitorOutput.cmdId = 4", "Vm::MonitorOutput.counter = 3",
                          "Vm::MonitorSm.isPendingRequest = false"));
}

}  // namespace

}  // namespace Vm
