// How a session reads its socket: chunks, odd bytes, and the end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Vm/Monitor/fakes/MonitorSession.h"
#include "runtime/fakes/ChangeRecorder.h"
#include "runtime/fakes/TraceRecorder.h"

namespace Vm {

namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using Lines = std::vector<std::string>;
using MonitorState = MonitorStatus::MonitorState;

class MonitorReceive : public testing::Test, protected fakes::MonitorSession {
 protected:
  MonitorReceive() { connect(); }

  // Whether the session still gets an answer to a question.
  bool works() {
    issue(MonitorCommand::startVm);
    converse();
    const Lines told = reader->take();
    return !told.empty() && told.back().starts_with("startVm");
  }
  uint32_t texts() const { return session->qmpParserRequest()->counter(); }
};

TEST_F(MonitorReceive, PassOfSeveralReadsIsOneText) {
  const uint32_t before = texts();
  const std::string text = fakes::eventOf(std::string(20'000, 'e')) + fakes::eventOf("STOP");
  hear(text);
  EXPECT_EQ(texts(), before + 1);
  EXPECT_EQ(session->qmpParserRequest()->inputString().size(), text.size());
}

TEST_F(MonitorReceive, TextsOfExactlyOneReadAndAByteMoreAreWhole) {
  for (const size_t size : {4095U, 4096U, 4097U, 8192U}) {
    const std::string frame = fakes::eventOf("");
    hear(fakes::eventOf(std::string(size - frame.size(), 'e')));
    EXPECT_EQ(session->qmpParserRequest()->inputString().size(), size);
  }
  EXPECT_TRUE(works());
}

TEST_F(MonitorReceive, ReplyOfOver4096BytesIsUnderstood) {
  const std::string pty = "pty:/dev/" + std::string(9000, 'p');
  issue(MonitorCommand::queryChardev);
  hear(fakes::returnOf("chardev", "[{\"filename\": \"" + pty + "\", \"label\": \"serial0\"}]"));
  EXPECT_THAT(reader->take(), ElementsAre("queryChardev 4 success " + pty));
}

TEST_F(MonitorReceive, ReplyInManyPassesIsUnderstood) {
  issue(MonitorCommand::queryStatus);
  for (const char byte : fakes::returnOf("status", "{\"running\": false}")) hear({&byte, 1});
  EXPECT_THAT(reader->take(), ElementsAre("queryStatus 4 success Stopped"));
}

TEST_F(MonitorReceive, LineEndOfTheLastMessageIsKeptForTheNextText) {
  hear(fakes::eventOf("STOP"));
  EXPECT_EQ(session->qmpParser()->unparsedString(), "\r\n");
  EXPECT_TRUE(works());
}

TEST_F(MonitorReceive, MessagesWithoutLineEndsAreUnderstood) {
  issue(MonitorCommand::queryStatus);
  hear("{\"event\": \"STOP\"}{\"return\": {\"running\": false}, \"id\": \"status\"}");
  EXPECT_THAT(reader->take(), ElementsAre("queryStatus 4 success Stopped"));
}

TEST_F(MonitorReceive, GarbageIsDroppedAndTheNextTextIsUnderstood) {
  for (const std::string& garbage : {"garbage here\r\n"s, "\xff\xfe\x01 {{\r\n"s, "]]]]"s,
                                     "{\"return\" \"id\"}\r\n"s, "QMP\r\n"s}) {
    hear(garbage);
    EXPECT_TRUE(works()) << garbage;
  }
}

TEST_F(MonitorReceive, MessagesBeforeGarbageStand) {
  issue(MonitorCommand::queryStatus);
  hear(fakes::returnOf("status", "{\"running\": false}") + "}garbage");
  EXPECT_THAT(reader->take(), ElementsAre("queryStatus 4 success Stopped"));
}

TEST_F(MonitorReceive, NulBytesAreHarmless) {
  for (const std::string& bytes : {std::string(1, '\0'), std::string(5000, '\0'),
                                   fakes::eventOf("STOP") + "\0{\"event\": \"X\"}"s}) {
    hear(bytes);
    EXPECT_TRUE(works());
  }
}

TEST_F(MonitorReceive, BytesBehindANulAreHandedOn) {
  hear("ab\0cd\0"s);
  EXPECT_EQ(session->qmpParserRequest()->inputString(), "ab\0cd\0"s);
}

TEST_F(MonitorReceive, JsonThatIsNoMessageIsIgnored) {
  hear("{}\r\n[]\r\n[1, {\"return\": 1}]\r\n{\"other\": true}\r\n");
  EXPECT_THAT(reader->take(), IsEmpty());
  EXPECT_TRUE(works());
}

TEST_F(MonitorReceive, ReadsAtMost4096BytesAtATime) {
  rt::fakes::TraceRecorder traces;
  hear(fakes::eventOf(std::string(5000, 'e')));
  Lines reads = traces.take(8);
  std::erase_if(reads, [](const auto& line) { return line.find("bytesRead:") == line.npos; });
  const size_t rest = fakes::eventOf("").size() + 5000 - 4096;
  EXPECT_THAT(reads, ElementsAre(testing::EndsWith("bytesRead:4096"),
                                 testing::EndsWith("bytesRead:" + std::to_string(rest))));
}

TEST_F(MonitorReceive, PassIsTraced) {
  peer.send(fakes::eventOf("STOP"));
  rt::fakes::TraceRecorder traces;
  turn();
  const std::string text = fakes::eventOf("STOP");
  Lines lines = traces.take();
  ASSERT_GE(lines.size(), 8U);
  lines.resize(8);
  EXPECT_THAT(lines, ElementsAre("8 void Vm::MonitorSm::handleMonFdReadable()", "9  calling read ",
                                 "8 handleMonFdReadable response: " + text +
                                     " bytesRead:" + std::to_string(text.size()),
                                 "9  calling read ",
                                 "2 handleMonFdReadable read error returns -1 with errno 11",
                                 "8 max tries reached : 1 bytes read -1", "8 " + text,
                                 testing::StartsWith("8 void Vm::MonitorSm::handleQmpResponse(")));
}

TEST_F(MonitorReceive, EndOfStreamDisconnects) {
  rt::fakes::TraceRecorder traces;
  peer.close();
  turn();
  EXPECT_EQ(status->state(), MonitorState::disconnected);
  EXPECT_THAT(traces.take(2),
              ElementsAre("handleMonFdReadable qemu monitor has forcibly closed conn "));
}

TEST_F(MonitorReceive, EndOfStreamOfAPeerThatStillListensDisconnects) {
  peer.shutDown();
  turn();
  EXPECT_EQ(status->state(), MonitorState::disconnected);
}

TEST_F(MonitorReceive, ConnectionResetDisconnects) {
  rt::fakes::TraceRecorder traces;
  peer.reset();
  turn();
  EXPECT_EQ(status->state(), MonitorState::disconnected);
  EXPECT_THAT(traces.take(2),
              ElementsAre("handleMonFdReadable read error returns -1 with errno 104",
                          "handleMonFdReadable qemu monitor has forcibly closed conn "));
}

TEST_F(MonitorReceive, DisconnectionIsToldOnce) {
  const auto changes = rt::make<rt::fakes::ChangeRecorder>();
  changes->watch(status);
  peer.close();
  for (int i = 0; i < 3; ++i) turn();
  EXPECT_THAT(changes->take(), ElementsAre("Vm::MonitorStatus.state = disconnected"));
}

TEST_F(MonitorReceive, DisconnectionIsTracedOnEveryPass) {
  rt::fakes::TraceRecorder traces;
  peer.close();
  for (int i = 0; i < 3; ++i) turn();
  EXPECT_EQ(traces.take(2), Lines(3, "handleMonFdReadable qemu monitor has forcibly closed conn "));
}

TEST_F(MonitorReceive, DisconnectionBeforeTheGreetingIsTold) {
  const auto another = std::make_unique<fakes::QmpPeer>();
  const auto fd = rt::make<rt::FileDescriptor>("web2-monitor");
  fd->descriptorIs(another->takeSessionEnd());
  fd->nonBlockingIs(true);
  fd->notifyOnReadableIs(true);
  const auto itsStatus = rt::make<MonitorStatus>(MonitorState::uninitialized);
  const auto its = rt::make<MonitorSm>(rt::make<MonitorInput>(0U), rt::make<MonitorOutput>(0U),
                                       itsStatus, fd, clock);
  another->close();
  turn();
  EXPECT_EQ(itsStatus->state(), MonitorState::disconnected);
  EXPECT_EQ(status->state(), MonitorState::connected);
}

TEST_F(MonitorReceive, DisconnectionTearsNothingElseDown) {
  issue(MonitorCommand::startVm);
  issue(MonitorCommand::queryStatus);
  peer.close();
  turn();
  EXPECT_TRUE(session->isPendingRequest());
  EXPECT_EQ(session->qmpRequests(), 1U);
  EXPECT_GE(descriptor->descriptor(), 0);
}

TEST_F(MonitorReceive, DataBeforeTheEndInTheSamePassIsDropped) {
  issue(MonitorCommand::startVm);
  peer.take();
  peer.send(fakes::returnOf("cont"));
  peer.close();
  turn();
  EXPECT_THAT(reader->take(), ElementsAre("disconnected"));
  EXPECT_TRUE(session->isPendingRequest());
}

TEST_F(MonitorReceive, DataReadInAnEarlierPassStands) {
  issue(MonitorCommand::startVm);
  hear(fakes::returnOf("cont"));
  peer.close();
  turn();
  EXPECT_THAT(reader->take(), ElementsAre("startVm 4 success cont", "disconnected"));
}

TEST_F(MonitorReceive, ConnectedDoesNotComeBackAfterDisconnected) {
  peer.shutDown();
  turn();
  issue(MonitorCommand::queryStatus);
  advance(60);
  EXPECT_EQ(status->state(), MonitorState::disconnected);
}

}  // namespace

}  // namespace Vm
