// The end of a session, also within what it tells.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Vm/Monitor/fakes/MonitorSession.h"
#include "runtime/fakes/TraceRecorder.h"

namespace Vm {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Lines = std::vector<std::string>;
using MonitorState = MonitorStatus::MonitorState;

class MonitorLifetime : public testing::Test, protected fakes::MonitorSession {};

TEST_F(MonitorLifetime, DestroyingItDetachesItFromInputSocketAndClock) {
  connect();
  issue(MonitorCommand::startVm);
  ASSERT_NE(clock->nextWakeUpTime(), rt::Seconds::infinity());
  destroy();
  EXPECT_FALSE(input->hasReactors());
  EXPECT_FALSE(descriptor->hasReactors());
  EXPECT_EQ(clock->nextWakeUpTime(), rt::Seconds::infinity());
}

TEST_F(MonitorLifetime, DestroyingItDetachesItFromItsParser) {
  const auto request = session->qmpParserRequest();
  const auto response = session->qmpParserResponse();
  destroy();
  EXPECT_FALSE(request->hasReactors());
  EXPECT_FALSE(response->hasReactors());
  EXPECT_EQ(request->references(), 1U);
  EXPECT_EQ(response->references(), 1U);
}

TEST_F(MonitorLifetime, DestroyedHearsNothing) {
  connect();
  issue(MonitorCommand::startVm);
  peer.take();
  destroy();
  issue(MonitorCommand::queryStatus);
  hear(fakes::returnOf("cont"));
  advance(60);
  EXPECT_THAT(reader->take(), IsEmpty());
  EXPECT_THAT(peer.takeTexts(), IsEmpty());
}

TEST_F(MonitorLifetime, DestroyingItDoesNotCloseTheSocket) {
  connect();
  destroy();
  EXPECT_TRUE(fakes::isOpen(descriptor->descriptor()));
  EXPECT_FALSE(peer.sessionHasClosed());
  descriptor->close();
  EXPECT_TRUE(peer.sessionHasClosed());
}

TEST_F(MonitorLifetime, DestroyingItReleasesWhatItReferredTo) {
  destroy();
  EXPECT_EQ(input->references(), 1U);
  EXPECT_EQ(descriptor->references(), 1U);
  EXPECT_EQ(clock->references(), 2U);  // the activity manager's, and this test's
}

TEST_F(MonitorLifetime, BeforeTheGreetingItCanBeDestroyed) {
  turn();
  destroy();
  hear(fakes::greeting());
  EXPECT_THAT(peer.takeTexts(), IsEmpty());
}

// The VM's machine destroys the session and closes the socket as soon as it is disconnected.
TEST_F(MonitorLifetime, ReaderMayDestroyItWhenItIsDisconnected) {
  connect();
  reader->onState = [this] {
    destroy();
    descriptor->close();
  };
  peer.close();
  turn();
  turn();
  EXPECT_THAT(reader->take(), ElementsAre("disconnected"));
}

TEST_F(MonitorLifetime, ReaderMayDestroyItWhenItIsConnected) {
  reader->onState = [this] { destroy(); };
  hear(fakes::greeting());
  peer.answer();
  turn();
  turn();
  EXPECT_THAT(reader->take(), ElementsAre("connected"));
  EXPECT_FALSE(input->hasReactors());
  EXPECT_EQ(clock->nextWakeUpTime(), rt::Seconds::infinity());
}

TEST_F(MonitorLifetime, ReaderMayDestroyItWithAResult) {
  connect();
  reader->onResult = [this] { destroy(); };
  issue(MonitorCommand::startVm);
  converse();
  EXPECT_THAT(reader->take(), ElementsAre("startVm 4 success cont"));
  EXPECT_FALSE(descriptor->hasReactors());
  EXPECT_EQ(clock->nextWakeUpTime(), rt::Seconds::infinity());
}

TEST_F(MonitorLifetime, DestroyedWithAResultHearsNoMoreOfTheSameText) {
  connect();
  reader->onResult = [this] { destroy(); };
  issue(MonitorCommand::startVm);
  hear(fakes::returnOf("cont") + fakes::returnOf("cont") + fakes::greeting());
  EXPECT_THAT(reader->take(), ElementsAre("startVm 4 success cont"));
  EXPECT_EQ(input->counter(), 4U);
}

TEST_F(MonitorLifetime, DestroyedWithAResultWritesNoMoreOfItsQueue) {
  connect();
  reader->onResult = [this] { destroy(); };
  issue(MonitorCommand::startVm);
  issue(MonitorCommand::queryStatus);
  peer.answer();
  turn();
  EXPECT_THAT(peer.takeTexts(), IsEmpty());
}

TEST_F(MonitorLifetime, ReaderMayDestroyItAndCloseTheSocketWithAResult) {
  connect();
  reader->onResult = [this] {
    destroy();
    descriptor->close();
  };
  issue(MonitorCommand::startVm);
  issue(MonitorCommand::queryStatus);
  peer.answer();
  EXPECT_NO_THROW(turn());
  EXPECT_TRUE(peer.sessionHasClosed());
}

TEST_F(MonitorLifetime, DestroyedWhenConnectedWritesNoMoreOfItsQueue) {
  reader->onState = [this] { destroy(); };
  hear(fakes::greeting());
  peer.answer();
  turn();
  EXPECT_THAT(peer.takeTexts(), IsEmpty());
}

TEST_F(MonitorLifetime, DestroyedWithATimeoutWritesNoMoreOfItsQueue) {
  connect();
  issue(MonitorCommand::startVm);
  issue(MonitorCommand::queryStatus);
  peer.take();
  reader->onResult = [this] { destroy(); };
  advance(5);
  EXPECT_THAT(peer.takeTexts(), IsEmpty());
}

TEST_F(MonitorLifetime, ReaderMayDestroyItWithATimeout) {
  connect();
  issue(MonitorCommand::startVm);
  reader->onResult = [this] { destroy(); };
  advance(5);
  EXPECT_THAT(reader->take(), ElementsAre("queryChardev 3 failure "));
  EXPECT_FALSE(input->hasReactors());
  EXPECT_EQ(clock->nextWakeUpTime(), rt::Seconds::infinity());
}

TEST_F(MonitorLifetime, NewSessionOnTheSameInputCountsItsCommandsOn) {
  connect();
  destroy();
  const auto newStatus = rt::make<MonitorStatus>(MonitorState::uninitialized);
  session = rt::make<MonitorSm>(input, output, newStatus, descriptor, clock);
  hear(fakes::greeting());
  converse();
  EXPECT_EQ(newStatus->state(), MonitorState::connected);
  EXPECT_THAT(reader->take(), ElementsAre("queryStatus 5 success Running",
                                          "queryChardev 6 success pty:/dev/pts/3"));
}

TEST_F(MonitorLifetime, OtherReadErrorsReachTheLoopOnEveryTurn) {
  // A descriptor that is readable but cannot be read: the writing end of a pipe without a reader.
  fakes::OwnedDescriptor end = fakes::endWithoutReader();
  descriptor->descriptorIs(end.release());
  rt::fakes::TraceRecorder traces;
  for (int i = 0; i < 2; ++i) {
    try {
      turn();
      ADD_FAILURE() << "nothing was thrown";
    } catch (const rt::ErrnoException& e) {
      EXPECT_EQ(e.error(), EBADF);
      EXPECT_THAT(e.what(), testing::StartsWith("read"));
    }
  }
  EXPECT_THAT(traces.take(2),
              ElementsAre("handleMonFdReadable read error returns -1 with errno 9",
                          "handleMonFdReadable read error returns -1 with errno 9"));
  EXPECT_EQ(status->state(), MonitorState::uninitialized);
}

}  // namespace

}  // namespace Vm
