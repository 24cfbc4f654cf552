// The beginning of a session: QEMU's greeting, the capabilities, the session's own questions.
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

const std::string capabilities = "{ \"execute\": \"qmp_capabilities\",\"id\": \"enter\" }\n";
const std::string queryStatus = "{ \"execute\": \"query-status\",\"id\": \"status\" }\n";
const std::string queryChardev = "{ \"execute\": \"query-chardev\",\"id\": \"chardev\" }\n";

class MonitorHandshake : public testing::Test, protected fakes::MonitorSession {};

TEST_F(MonitorHandshake, StartsWithTheCapabilitiesCommandUnderId1) {
  EXPECT_TRUE(session->initialized());
  EXPECT_EQ(input->cmd(), MonitorCommand::enterCmdMode);
  EXPECT_EQ(input->counter(), 1U);
  EXPECT_EQ(session->qmpRequests(), 1U);
  EXPECT_EQ(session->qmpRequestFront(),
            (QmpRequestType{MonitorCommand::enterCmdMode, 1, capabilities, QmpIdTypes::enter,
                            QmpRequestType::noFd, false}));
}

TEST_F(MonitorHandshake, HasItsInitialValues) {
  EXPECT_FALSE(session->helloMessage());
  EXPECT_FALSE(session->isPendingRequest());
  EXPECT_EQ(session->qmpPendingRequest(), QmpRequestType());
  EXPECT_EQ(session->qmpNotHeardFor(), 0U);
  EXPECT_EQ(session->monitorInput(), input);
  EXPECT_EQ(session->monitorOutput(), output);
  EXPECT_EQ(session->monitorStatus(), status);
  EXPECT_EQ(session->monFd(), descriptor);
  EXPECT_EQ(session->timeoutClock(), clock);
  EXPECT_EQ(session->qmpParser()->qmpParserRequest(), session->qmpParserRequest());
  EXPECT_EQ(session->qmpParser()->qmpParserResponse(), session->qmpParserResponse());
  EXPECT_EQ(output->counter(), 0U);
  EXPECT_EQ(status->state(), MonitorState::uninitialized);
}

TEST_F(MonitorHandshake, InitializesItsMachineryOnce) {
  const auto traces = std::make_unique<rt::fakes::TraceRecorder>();
  const auto another = rt::make<MonitorSm>(rt::make<MonitorInput>(0U), output, status,
                                           rt::make<rt::FileDescriptor>("none"), clock);
  const Lines entries = traces->take(8);
  EXPECT_EQ(std::count_if(entries.begin(), entries.end(),
                          [](const std::string& line) {
                            return line.starts_with("void Vm::MonitorSm::handleInitialized()");
                          }),
            1);
  EXPECT_EQ(another->monitorInput()->counter(), 1U);
}

TEST_F(MonitorHandshake, WritesNothingBeforeTheGreeting) {
  turn();
  advance(60);
  EXPECT_THAT(peer.takeTexts(), IsEmpty());
  EXPECT_EQ(output->counter(), 0U);
}

TEST_F(MonitorHandshake, GreetingReleasesTheCapabilitiesRequestAlone) {
  hear(fakes::greeting());
  EXPECT_TRUE(session->helloMessage());
  EXPECT_THAT(peer.takeTexts(), ElementsAre(capabilities));
  EXPECT_TRUE(session->isPendingRequest());
  EXPECT_EQ(session->qmpPendingRequest().id, QmpIdTypes::enter);
}

TEST_F(MonitorHandshake, GreetingIssuesQueryStatusAndThenQueryChardev) {
  hear(fakes::greeting());
  EXPECT_EQ(session->qmpRequests(), 2U);
  EXPECT_EQ(session->qmpRequestDeq(),
            (QmpRequestType{MonitorCommand::queryStatus, 2, queryStatus, QmpIdTypes::status,
                            QmpRequestType::noFd, false}));
  EXPECT_EQ(session->qmpRequestDeq(),
            (QmpRequestType{MonitorCommand::queryChardev, 3, queryChardev, QmpIdTypes::chardev,
                            QmpRequestType::noFd, false}));
}

TEST_F(MonitorHandshake, AlwaysAsksForRunStateAndConsole) {
  hear(fakes::greeting());
  EXPECT_THAT(converse(), ElementsAre(capabilities, queryStatus, queryChardev));
  EXPECT_THAT(reader->take(), ElementsAre("connected", "queryStatus 2 success Running",
                                          "queryChardev 3 success pty:/dev/pts/3"));
  EXPECT_FALSE(session->isPendingRequest());
  EXPECT_EQ(session->qmpRequests(), 0U);
}

TEST_F(MonitorHandshake, OwnQuestionsLeaveTheArgumentsOfTheCommandBefore) {
  const auto args = fakes::backendArgs(0, "tap1", "net1");
  issue(MonitorCommand::backendDel, args);
  hear(fakes::greeting());
  EXPECT_EQ(input->cmd(), MonitorCommand::queryChardev);
  EXPECT_EQ(input->cmdArgs(), args);
}

TEST_F(MonitorHandshake, IsNotConnectedBeforeTheCapabilitiesReply) {
  hear(fakes::greeting());
  EXPECT_EQ(status->state(), MonitorState::uninitialized);
  hear(fakes::returnOf("enter"));
  EXPECT_EQ(status->state(), MonitorState::connected);
}

TEST_F(MonitorHandshake, CapabilitiesReplyPublishesNoResult) {
  const auto changes = rt::make<rt::fakes::ChangeRecorder>();
  hear(fakes::greeting());
  changes->watch(output);
  hear(fakes::returnOf("enter"));
  EXPECT_THAT(changes->take(), IsEmpty());
}

TEST_F(MonitorHandshake, CapabilitiesReplyPublishesNoResultWhenConnectedEither) {
  connect();
  const auto changes = rt::make<rt::fakes::ChangeRecorder>();
  changes->watch(output);
  changes->watch(status);
  issue(MonitorCommand::enterCmdMode);
  EXPECT_THAT(converse(), ElementsAre(capabilities));
  EXPECT_THAT(changes->take(), IsEmpty());
  EXPECT_FALSE(session->isPendingRequest());
}

TEST_F(MonitorHandshake, ErrorReplyToTheCapabilitiesConnectsNothingAndGoesOn) {
  hear(fakes::greeting());
  peer.take();
  hear(fakes::errorOf("enter"));
  EXPECT_EQ(status->state(), MonitorState::uninitialized);
  EXPECT_EQ(output->counter(), 0U);
  EXPECT_THAT(peer.takeTexts(), ElementsAre(queryStatus));
}

TEST_F(MonitorHandshake, OtherRepliesDoNotConnect) {
  hear(fakes::greeting());
  hear(fakes::returnOf("status", "{\"running\": true}") + fakes::returnOf("chardev", "[]"));
  EXPECT_EQ(status->state(), MonitorState::uninitialized);
  EXPECT_EQ(session->qmpPendingRequest().id, QmpIdTypes::enter);
}

TEST_F(MonitorHandshake, GreetingAndCapabilitiesReplyInOneReadAreTakenTogether) {
  hear(fakes::greeting() + fakes::returnOf("enter"));
  EXPECT_EQ(session->qmpParserRequest()->counter(), 1U);
  EXPECT_EQ(status->state(), MonitorState::connected);
  EXPECT_THAT(peer.takeTexts(), ElementsAre(capabilities, queryStatus));
}

TEST_F(MonitorHandshake, EventsInBetweenChangeNothing) {
  hear(fakes::eventOf("RESUME") + fakes::greeting() + fakes::eventOf("NIC_RX_FILTER_CHANGED") +
       fakes::returnOf("enter") + fakes::eventOf("STOP"));
  EXPECT_THAT(converse(), ElementsAre(capabilities, queryStatus, queryChardev));
  EXPECT_THAT(reader->take(), ElementsAre("connected", "queryStatus 2 success Running",
                                          "queryChardev 3 success pty:/dev/pts/3"));
}

// The whole of a handshake arrives in two reads, wherever the stream is cut.
TEST(MonitorHandshakeSplit, AtAnyByteGivesTheSameSession) {
  const std::string text = fakes::eventOf("RESUME") + fakes::greeting() + fakes::returnOf("enter") +
                           fakes::eventOf("STOP") +
                           fakes::returnOf("status", "{\"running\": false}");
  for (size_t cut = 0; cut <= text.size(); ++cut) {
    fakes::MonitorSession s;
    if (cut > 0) s.hear(text.substr(0, cut));
    if (cut < text.size()) s.hear(text.substr(cut));
    ASSERT_THAT(s.reader->take(), ElementsAre("connected", "queryStatus 2 success Stopped"))
        << "cut at " << cut;
    ASSERT_THAT(s.peer.takeTexts(), ElementsAre(capabilities, queryStatus, queryChardev))
        << "cut at " << cut;
  }
}

TEST_F(MonitorHandshake, ArrivesInSingleBytes) {
  for (const char byte : fakes::greeting() + fakes::returnOf("enter")) hear({&byte, 1});
  EXPECT_EQ(status->state(), MonitorState::connected);
  EXPECT_THAT(peer.takeTexts(), ElementsAre(capabilities, queryStatus));
}

TEST_F(MonitorHandshake, SecondGreetingAsksForRunStateAndConsoleAgain) {
  connect();
  hear(fakes::greeting());
  EXPECT_TRUE(session->helloMessage());
  EXPECT_THAT(converse(), ElementsAre(queryStatus, queryChardev));
  EXPECT_THAT(reader->take(), ElementsAre("queryStatus 4 success Running",
                                          "queryChardev 5 success pty:/dev/pts/3"));
}

TEST_F(MonitorHandshake, SecondGreetingWhileARequestIsInFlightWritesNothing) {
  hear(fakes::greeting());
  peer.take();
  hear(fakes::greeting());
  EXPECT_THAT(peer.takeTexts(), IsEmpty());
  EXPECT_EQ(session->qmpRequests(), 4U);
}

TEST_F(MonitorHandshake, ReaderThatIssuesACommandWhenConnectedComesAfterTheOwnQuestions) {
  reader->onState = [this] { issue(MonitorCommand::startVm); };
  hear(fakes::greeting());
  EXPECT_THAT(converse(), ElementsAre(capabilities, queryStatus, queryChardev,
                                      "{ \"execute\": \"cont\",\"id\": \"cont\" }\n"));
  EXPECT_EQ(reader->take().back(), "startVm 4 success cont");
}

TEST_F(MonitorHandshake, GreetingSendsTheCapabilitiesBeforeItQueuesTheOwnQuestions) {
  rt::fakes::TraceRecorder traces;
  hear(fakes::greeting());
  const Lines lines = traces.take(8);
  const auto at = std::find(lines.begin(), lines.end(), "helloMessage: false");
  ASSERT_GE(lines.end() - at, 3);
  EXPECT_EQ(at[1],
            "void Vm::MonitorSm::checkAndSendRequest() isPendingRequest: false number of queued "
            "requests: 1");
  EXPECT_THAT(at[2], testing::StartsWith("void Vm::MonitorSm::doIssueQmpRequest("));
}

TEST_F(MonitorHandshake, IsTraced) {
  rt::fakes::TraceRecorder traces;
  hear(fakes::greeting());
  const Lines lines = traces.take(8);
  EXPECT_THAT(lines, Contains("handleParserResult: hello message received from monitor "));
  EXPECT_THAT(lines, Contains("helloMessage: false"));
  hear(fakes::greeting());
  EXPECT_THAT(traces.take(8), Contains("helloMessage: true"));
}

TEST_F(MonitorHandshake, NotHeardForIsSetByGenericAccessAndByNothingElse) {
  rt::attributeTextIs(*session, "qmpNotHeardFor", "10");
  connect();
  advance(60);
  EXPECT_EQ(session->qmpNotHeardFor(), 10U);
  EXPECT_EQ(rt::attributeText(*session, "qmpNotHeardFor"), "10");
}

TEST_F(MonitorHandshake, StateIsReadOnlyToGenericAccess) {
  for (const char* name :
       {"helloMessage", "isPendingRequest", "qmpPendingRequest", "initialized", "timeoutInterval"})
    EXPECT_THROW(rt::attributeTextIs(*session, name, rt::attributeText(*session, name)),
                 rt::AttributeException)
        << name;
}

TEST_F(MonitorHandshake, EveryAttributeIsReadable) {
  Lines names;
  for (const auto& attribute : session->type().attributes) {
    names.emplace_back(attribute.name);
    if (attribute.text) {
      EXPECT_EQ(attribute.text(*session), rt::attributeText(*session, attribute.name));
    }
  }
  EXPECT_THAT(names, testing::IsSupersetOf({"monitorInput", "monitorOutput", "monitorStatus",
                                            "monFd", "timeoutClock", "helloMessage",
                                            "isPendingRequest", "qmpPendingRequest", "qmpRequest",
                                            "qmpParserRequest", "qmpParserResponse", "qmpParser",
                                            "initialized", "qmpNotHeardFor", "timeoutInterval"}));
}

}  // namespace

}  // namespace Vm
