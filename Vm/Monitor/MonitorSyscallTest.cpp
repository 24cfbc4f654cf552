// How a session calls sendmsg and read, and what it makes of each answer. Both are substituted at
// link time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <deque>

#include "Vm/Monitor/fakes/MonitorSession.h"
#include "runtime/fakes/TraceRecorder.h"

namespace Vm {

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Lines = std::vector<std::string>;

// An answer of a system call.
struct Answer {
  ssize_t result;
  int error = 0;
  std::string data = {};  // what is read
};

// What one sendmsg was asked.
struct Sending {
  int descriptor;
  int flags;
  std::string text;
  size_t vectors;
  bool hasControl;
  size_t controlLength;
  size_t headerLength;
  int level;
  int type;
  int passed;
};

Sending sendingOf(int descriptor, const msghdr& message, int flags) {
  Sending sending{descriptor,
                  flags,
                  {static_cast<const char*>(message.msg_iov->iov_base), message.msg_iov->iov_len},
                  message.msg_iovlen,
                  message.msg_control != nullptr,
                  message.msg_controllen,
                  0,
                  0,
                  0,
                  -1};
  if (const cmsghdr* const header = CMSG_FIRSTHDR(&message)) {
    sending.headerLength = header->cmsg_len;
    sending.level = header->cmsg_level;
    sending.type = header->cmsg_type;
    std::memcpy(&sending.passed, CMSG_DATA(header), sizeof sending.passed);
  }
  return sending;
}

// The answers to come; with none left, the kernel is asked.
std::deque<Answer> sendAnswers;
std::deque<Answer> readAnswers;
std::vector<Sending> sendings;

Answer takeAnswer(std::deque<Answer>& answers) {
  const Answer answer = answers.front();
  answers.pop_front();
  errno = answer.error;
  return answer;
}

}  // namespace

extern "C" {
ssize_t __real_sendmsg(int descriptor, const msghdr* message, int flags);
ssize_t __wrap_sendmsg(int descriptor, const msghdr* message, int flags);
ssize_t __real_read(int descriptor, void* buffer, size_t size);
ssize_t __wrap_read(int descriptor, void* buffer, size_t size);

ssize_t __wrap_sendmsg(int descriptor, const msghdr* message, int flags) {
  sendings.push_back(sendingOf(descriptor, *message, flags));
  if (sendAnswers.empty()) return __real_sendmsg(descriptor, message, flags);
  return takeAnswer(sendAnswers).result;
}

ssize_t __wrap_read(int descriptor, void* buffer, size_t size) {
  if (readAnswers.empty()) return __real_read(descriptor, buffer, size);
  const Answer answer = takeAnswer(readAnswers);
  answer.data.copy(static_cast<char*>(buffer), size);
  return answer.result;
}
}

namespace {

const std::string contText = "{ \"execute\": \"cont\",\"id\": \"cont\" }\n";
const auto contSize = static_cast<ssize_t>(contText.size());

class MonitorSyscall : public testing::Test, protected fakes::MonitorSession {
 protected:
  MonitorSyscall() {
    sendAnswers.clear();
    readAnswers.clear();
    connect();
    sendings.clear();
  }

  static void answerSends(size_t times, Answer answer) {
    sendAnswers.insert(sendAnswers.end(), times, answer);
  }
  static Lines texts() {
    Lines all;
    for (const Sending& sending : sendings) all.push_back(sending.text);
    return all;
  }
  void start() { issue(MonitorCommand::startVm); }
  // What the exception says that issuing a command ends in; empty when it ends in none.
  std::string failureOfStart() {
    try {
      start();
    } catch (const rt::InternalException& e) {
      return e.what();
    }
    return {};
  }
};

TEST_F(MonitorSyscall, RequestIsOneVectorWithoutControlMessageAndFlags) {
  start();
  ASSERT_THAT(sendings, SizeIs(1));
  const Sending& sending = sendings.front();
  EXPECT_EQ(sending.descriptor, descriptor->descriptor());
  EXPECT_EQ(sending.flags, 0);
  EXPECT_EQ(sending.vectors, 1U);
  EXPECT_EQ(sending.text, contText);
  EXPECT_FALSE(sending.hasControl);
  EXPECT_EQ(sending.controlLength, 0U);
}

TEST_F(MonitorSyscall, DescriptorIsOneControlMessageOf20In24Bytes) {
  const auto file = fakes::fileWith("tap");
  issue(MonitorCommand::backendAdd,
        fakes::backendArgs(static_cast<uint32_t>(file), "tap1", "net1"));
  ASSERT_THAT(sendings, SizeIs(1));
  const Sending& sending = sendings.front();
  EXPECT_EQ(sending.controlLength, 24U);
  EXPECT_EQ(sending.headerLength, 20U);
  EXPECT_EQ(sending.level, SOL_SOCKET);
  EXPECT_EQ(sending.type, SCM_RIGHTS);
  EXPECT_EQ(sending.passed, int{file});
}

TEST_F(MonitorSyscall, DescriptorOneIsPassed) {
  issue(MonitorCommand::backendAdd, fakes::backendArgs(1, "tap1", "net1"));
  ASSERT_THAT(sendings, SizeIs(1));
  EXPECT_EQ(sendings.front().passed, 1);
}

TEST_F(MonitorSyscall, DescriptorsThatAreNotPositiveHaveNoControlMessage) {
  for (const uint32_t fd : {0U, 0xFFFFFFFFU, 0x80000000U}) {
    sendings.clear();
    issue(MonitorCommand::backendAdd, fakes::backendArgs(fd, "tap1", "net1"));
    ASSERT_THAT(sendings, SizeIs(1)) << fd;
    EXPECT_FALSE(sendings.front().hasControl) << fd;
    EXPECT_EQ(sendings.front().controlLength, 0U) << fd;
    converse();
  }
}

TEST_F(MonitorSyscall, EmptyTextIsNotSent) {
  session->qmpRequestEnq({MonitorCommand::startVm, 9, "", QmpIdTypes::cont, 3, false});
  start();
  EXPECT_THAT(sendings, IsEmpty());
  EXPECT_TRUE(session->isPendingRequest());
}

class MonitorRetry : public MonitorSyscall, public testing::WithParamInterface<int> {};

TEST_P(MonitorRetry, IsTriedTenTimes) {
  answerSends(10, {-1, GetParam()});
  start();
  EXPECT_THAT(sendings, SizeIs(11));
  EXPECT_THAT(texts(), Each(contText));
  converse();
  EXPECT_EQ(reader->take(), Lines{"startVm 4 success cont"});
}

TEST_P(MonitorRetry, EleventhFailureThrows) {
  answerSends(11, {-1, GetParam()});
  EXPECT_EQ(failureOfStart(), "qemu monitor write failed ");
  EXPECT_THAT(sendings, SizeIs(11));
}

TEST_P(MonitorRetry, IsAtOnce) {
  answerSends(10, {-1, GetParam()});
  const rt::Seconds before = clock->now();
  start();
  EXPECT_EQ(clock->now(), before);
  EXPECT_EQ(clock->nextWakeUpTime(), before + rt::Seconds(5));
}

INSTANTIATE_TEST_SUITE_P(Errors, MonitorRetry, testing::Values(EINTR, EAGAIN));

TEST_F(MonitorSyscall, InterruptionsAndFullSocketsCountTogether) {
  answerSends(5, {-1, EINTR});
  answerSends(6, {-1, EAGAIN});
  EXPECT_EQ(failureOfStart(), "qemu monitor write failed ");
  EXPECT_THAT(sendings, SizeIs(11));
}

TEST_F(MonitorSyscall, RetriesAreNotResetByPartialWrites) {
  answerSends(5, {-1, EAGAIN});
  answerSends(1, {1});
  answerSends(5, {-1, EINTR});
  answerSends(1, {1});
  answerSends(1, {-1, EAGAIN});
  EXPECT_EQ(failureOfStart(), "qemu monitor write failed ");
  EXPECT_THAT(sendings, SizeIs(13));
}

TEST_F(MonitorSyscall, RetriesAreCountedForEachRequestAnew) {
  answerSends(10, {-1, EAGAIN});
  start();
  issue(MonitorCommand::queryStatus);
  peer.answer();
  answerSends(10, {-1, EAGAIN});
  turn();
  EXPECT_THAT(sendings, SizeIs(22));
}

TEST_F(MonitorSyscall, PartialWriteSendsTheWholeMessageAgain) {
  answerSends(1, {10});
  answerSends(1, {contSize - 11});
  answerSends(1, {1});
  start();
  EXPECT_THAT(texts(), ElementsAre(contText, contText, contText));
  EXPECT_THAT(sendAnswers, IsEmpty());
}

TEST_F(MonitorSyscall, PartialWriteSendsTheDescriptorAgain) {
  answerSends(1, {10});
  const auto file = fakes::fileWith("tap");
  issue(MonitorCommand::backendAdd,
        fakes::backendArgs(static_cast<uint32_t>(file), "tap1", "net1"));
  ASSERT_THAT(sendings, SizeIs(2));
  EXPECT_EQ(sendings.back().passed, int{file});
}

TEST_F(MonitorSyscall, MoreWrittenThanLeftEndsTheRequest) {
  answerSends(1, {10});
  start();
  EXPECT_THAT(sendings, SizeIs(2));
  EXPECT_TRUE(session->isPendingRequest());
}

TEST_F(MonitorSyscall, NothingWrittenIsTriedAgain) {
  answerSends(30, {0});
  start();
  EXPECT_THAT(sendings, SizeIs(31));
}

TEST_F(MonitorSyscall, OtherWriteErrorsThrowAtOnce) {
  for (const int error : {EPIPE, ECONNRESET, EBADF, ENOBUFS, ENOMEM}) {
    sendings.clear();
    answerSends(1, {-1, error});
    EXPECT_EQ(failureOfStart(), "qemu monitor write failed ") << error;
    EXPECT_THAT(sendings, SizeIs(1)) << error;
  }
}

TEST_F(MonitorSyscall, FailedWriteArmsNoTimeoutAndLeavesNothingInFlight) {
  answerSends(1, {-1, EPIPE});
  advance(60);
  EXPECT_NE(failureOfStart(), "");
  EXPECT_FALSE(session->isPendingRequest());
  EXPECT_EQ(clock->nextWakeUpTime(), rt::Seconds::infinity());
  advance(60);
  EXPECT_THAT(reader->take(), IsEmpty());
}

TEST_F(MonitorSyscall, FailedFirstRequestLeavesTheRestOfItsCommandUnqueued) {
  answerSends(1, {-1, EPIPE});
  EXPECT_THROW(issue(MonitorCommand::backendAdd), rt::InternalException);
  EXPECT_EQ(session->qmpRequests(), 0U);
}

TEST_F(MonitorSyscall, WritesAreTraced) {
  answerSends(1, {-1, EAGAIN});
  answerSends(1, {10});
  rt::fakes::TraceRecorder traces;
  start();
  EXPECT_THAT(traces.take(9),
              ElementsAre("doIssueQmpRequest written: -1", testing::EndsWith("written < 0 -1"),
                          "doIssueQmpRequest written: 10",
                          "doIssueQmpRequest written: " + std::to_string(contSize)));
}

TEST_F(MonitorSyscall, FailureIsTracedOnceWithItsErrno) {
  answerSends(11, {-1, EAGAIN});
  rt::fakes::TraceRecorder traces;
  failureOfStart();
  EXPECT_THAT(traces.take(1), ElementsAre("doIssueQmpRequest FAIL: cannot write to qemu monitor, "
                                          "errno: 11"));
}

TEST_F(MonitorSyscall, RetriesAreNoErrorsToTheTrace) {
  answerSends(10, {-1, EINTR});
  rt::fakes::TraceRecorder traces;
  start();
  EXPECT_THAT(traces.take(1), IsEmpty());
}

class MonitorReadError : public MonitorSyscall, public testing::WithParamInterface<int> {};

TEST_P(MonitorReadError, ThrowsWithItsErrno) {
  peer.send(fakes::eventOf("STOP"));
  readAnswers = {{-1, GetParam()}};
  rt::fakes::TraceRecorder traces;
  try {
    turn();
    FAIL() << "nothing was thrown";
  } catch (const rt::ErrnoException& e) {
    EXPECT_EQ(e.error(), GetParam());
    EXPECT_THAT(e.what(), testing::StartsWith("read: "));
  }
  EXPECT_EQ(status->state(), MonitorStatus::MonitorState::connected);
  EXPECT_THAT(traces.take(2), ElementsAre("handleMonFdReadable read error returns -1 with errno " +
                                          std::to_string(GetParam())));
}

TEST_P(MonitorReadError, LosesNothingThatWasNotRead) {
  start();
  peer.answer();
  readAnswers = {{-1, GetParam()}};
  EXPECT_THROW(turn(), rt::ErrnoException);
  turn();
  EXPECT_EQ(reader->take(), Lines{"startVm 4 success cont"});
}

// An interrupted read is an error as well: no signal has a handler here.
INSTANTIATE_TEST_SUITE_P(Errors, MonitorReadError,
                         testing::Values(EINTR, EIO, ENOTCONN, ETIMEDOUT));

TEST_F(MonitorSyscall, ReadableWithoutDataHandsNothingToTheParser) {
  const uint32_t before = session->qmpParserRequest()->counter();
  peer.send(fakes::eventOf("STOP"));
  readAnswers = {{-1, EAGAIN}};
  turn();
  EXPECT_THAT(readAnswers, IsEmpty());
  EXPECT_EQ(session->qmpParserRequest()->counter(), before);
}

TEST_F(MonitorSyscall, DataBeforeAResetInTheSamePassIsDropped) {
  start();
  const uint32_t before = session->qmpParserRequest()->counter();
  const std::string reply = fakes::returnOf("cont");
  peer.send("x");
  readAnswers = {{static_cast<ssize_t>(reply.size()), 0, reply}, {-1, ECONNRESET}};
  turn();
  EXPECT_EQ(session->qmpParserRequest()->counter(), before);
  EXPECT_EQ(reader->take(), Lines{"disconnected"});
}

TEST_F(MonitorSyscall, ResetReadDisconnects) {
  peer.send(fakes::eventOf("STOP"));
  readAnswers = {{-1, ECONNRESET}};
  turn();
  EXPECT_EQ(status->state(), MonitorStatus::MonitorState::disconnected);
}

}  // namespace

}  // namespace Vm
