// What a session writes: the exact bytes of its requests, and the descriptors with them.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>

#include "Vm/Monitor/fakes/MonitorSession.h"
#include "runtime/fakes/TraceRecorder.h"

namespace Vm {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using Lines = std::vector<std::string>;

class MonitorSend : public testing::Test, protected fakes::MonitorSession {
 protected:
  MonitorSend() { connect(); }
};

TEST_F(MonitorSend, CommandsOfOneRequestHaveTheirExactBytes) {
  for (const auto cmd : {MonitorCommand::enterCmdMode, MonitorCommand::queryStatus,
                         MonitorCommand::startVm, MonitorCommand::queryChardev})
    issue(cmd);
  EXPECT_THAT(converse(), ElementsAre("{ \"execute\": \"qmp_capabilities\",\"id\": \"enter\" }\n",
                                      "{ \"execute\": \"query-status\",\"id\": \"status\" }\n",
                                      "{ \"execute\": \"cont\",\"id\": \"cont\" }\n",
                                      "{ \"execute\": \"query-chardev\",\"id\": \"chardev\" }\n"));
}

TEST_F(MonitorSend, BackendAddHasItsExactBytes) {
  const auto file = fakes::fileWith("tap");
  issue(MonitorCommand::backendAdd,
        fakes::backendArgs(static_cast<uint32_t>(file), "tap7", "backend7", "nic7"));
  EXPECT_THAT(
      converse(),
      ElementsAre(
          R"({ "execute": "getfd","arguments": {"fdname": "tap7"},"id": "getfd" })"
          "\n",
          R"({ "execute": "netdev_add","arguments": {"type": "tap","fd": "tap7","id": "backend7"},"id": "netdev" })"
          "\n",
          R"({ "execute": "netdev_set","arguments": {"nicid": "nic7","netdevid": "backend7"},"id": "netdev" })"
          "\n",
          R"({ "execute": "set_link","arguments": {"name": "backend7","up": true},"id": "setlink" })"
          "\n"));
  EXPECT_THAT(reader->take(), ElementsAre("backendAdd 4 success setlink"));
}

TEST_F(MonitorSend, BackendDelHasItsExactBytes) {
  issue(MonitorCommand::backendDel, fakes::backendArgs(0, "tap7", "backend7"));
  EXPECT_THAT(
      converse(),
      ElementsAre(
          R"({ "execute": "set_link","arguments": {"name": "backend7","up": false},"id": "setlink" })"
          "\n",
          R"({ "execute": "closefd","arguments": {"fdname": "tap7"},"id": "closefd" })"
          "\n",
          R"({ "execute": "netdev_del","arguments": {"id": "backend7"},"id": "netdev" })"
          "\n"));
  EXPECT_THAT(reader->take(), ElementsAre("backendDel 4 success netdev"));
}

TEST_F(MonitorSend, MissingArgumentsStandAsEmptyText) {
  issue(MonitorCommand::backendAdd, rt::make<MonitorCommandArgs>());
  EXPECT_THAT(
      converse(),
      ElementsAre(
          R"({ "execute": "getfd","arguments": {"fdname": ""},"id": "getfd" })"
          "\n",
          R"({ "execute": "netdev_add","arguments": {"type": "tap","fd": "","id": ""},"id": "netdev" })"
          "\n",
          R"({ "execute": "netdev_set","arguments": {"nicid": "","netdevid": ""},"id": "netdev" })"
          "\n",
          R"({ "execute": "set_link","arguments": {"name": "","up": true},"id": "setlink" })"
          "\n"));
}

TEST_F(MonitorSend, NullArgumentsStandAsEmptyText) {
  issue(MonitorCommand::backendDel, nullptr);
  EXPECT_THAT(
      converse(),
      ElementsAre(
          R"({ "execute": "set_link","arguments": {"name": "","up": false},"id": "setlink" })"
          "\n",
          R"({ "execute": "closefd","arguments": {"fdname": ""},"id": "closefd" })"
          "\n",
          R"({ "execute": "netdev_del","arguments": {"id": ""},"id": "netdev" })"
          "\n"));
}

TEST_F(MonitorSend, ArgumentsStandAsTheyAre) {
  issue(MonitorCommand::backendDel, fakes::backendArgs(0, "tap1", "a\"b\\c%s%d'{}"));
  EXPECT_THAT(peer.takeTexts(),
              ElementsAre("{ \"execute\": \"set_link\",\"arguments\": {\"name\": "
                          "\"a\"b\\c%s%d'{}\",\"up\": false},\"id\": \"setlink\" }\n"));
}

TEST_F(MonitorSend, ArgumentsAreReadWhenTheCommandIsIssued) {
  const auto args = fakes::backendArgs(0, "tap1", "net1");
  issue(MonitorCommand::backendDel, args);
  args->argIs({"fdname", 0, "another"});
  EXPECT_THAT(converse(),
              Contains("{ \"execute\": \"closefd\",\"arguments\": {\"fdname\": \"tap1\"},\"id\": "
                       "\"closefd\" }\n"));
}

TEST_F(MonitorSend, DescriptorGoesWithGetfdAlone) {
  const auto file = fakes::fileWith("tap");
  issue(MonitorCommand::backendAdd,
        fakes::backendArgs(static_cast<uint32_t>(file), "tap1", "net1", "nic1"));
  std::vector<size_t> counts;
  for (auto requests = peer.take(); !requests.empty(); requests = peer.take()) {
    ASSERT_EQ(requests.size(), 1U);
    counts.push_back(requests.front().descriptors.size());
    hear(fakes::returnOf(rt::toText(session->qmpPendingRequest().id)));
  }
  EXPECT_THAT(counts, ElementsAre(1U, 0U, 0U, 0U));
}

TEST_F(MonitorSend, DescriptorThatArrivesIsTheFile) {
  const auto file = fakes::fileWith("this very file");
  issue(MonitorCommand::backendAdd,
        fakes::backendArgs(static_cast<uint32_t>(file), "tap1", "net1", "nic1"));
  const fakes::Received got = peer.receive();
  ASSERT_EQ(got.descriptors.size(), 1U);
  EXPECT_TRUE(fakes::isSameFile(got.descriptors.front(), file));
  std::array<char, 32> text{};
  ASSERT_EQ(::read(got.descriptors.front(), text.data(), text.size()), 14);
  EXPECT_STREQ(text.data(), "this very file");
}

TEST_F(MonitorSend, DescriptorStaysOpenHere) {
  const auto file = fakes::fileWith("tap");
  issue(MonitorCommand::backendAdd,
        fakes::backendArgs(static_cast<uint32_t>(file), "tap1", "net1", "nic1"));
  converse();
  EXPECT_TRUE(fakes::isOpen(file));
}

TEST_F(MonitorSend, DescriptorsZeroAndNoneAreNeverPassed) {
  for (const uint32_t fd : {0U, QmpRequestType::noFd, 0x80000000U}) {
    issue(MonitorCommand::backendAdd, fakes::backendArgs(fd, "tap1", "net1", "nic1"));
    const fakes::Received got = peer.receive();
    EXPECT_THAT(got.text, testing::HasSubstr("\"getfd\"")) << fd;
    EXPECT_EQ(got.descriptors.size(), 0U) << fd;
    peer.send(fakes::returnOf("getfd"));
    turn();
    converse();
  }
}

// Without the argument its number reads as 0.
TEST_F(MonitorSend, BackendDelPassesNoDescriptor) {
  const auto file = fakes::fileWith("tap");
  issue(MonitorCommand::backendDel,
        fakes::backendArgs(static_cast<uint32_t>(file), "tap1", "net1"));
  for (auto requests = peer.take(); !requests.empty(); requests = peer.take()) {
    EXPECT_EQ(requests.front().descriptors.size(), 0U) << requests.front().text;
    hear(fakes::returnOf(rt::toText(session->qmpPendingRequest().id)));
  }
  EXPECT_THAT(reader->take(), ElementsAre("backendDel 4 success netdev"));
}

TEST_F(MonitorSend, EmptyTextIsPendingButWritesNothing) {
  session->qmpRequestEnq({MonitorCommand::startVm, 9, "", QmpIdTypes::cont, 0, false});
  issue(MonitorCommand::queryStatus);
  EXPECT_THAT(peer.takeTexts(), IsEmpty());
  EXPECT_TRUE(session->isPendingRequest());
  hear(fakes::returnOf("cont"));
  EXPECT_EQ(peer.takeTexts().size(), 1U);
}

TEST_F(MonitorSend, LongRequestArrivesWhole) {
  const std::string name(60'000, 'n');
  issue(MonitorCommand::backendDel, fakes::backendArgs(0, "tap1", name.c_str()));
  EXPECT_THAT(peer.takeTexts(),
              ElementsAre("{ \"execute\": \"set_link\",\"arguments\": {\"name\": \"" + name +
                          "\",\"up\": false},\"id\": \"setlink\" }\n"));
}

TEST_F(MonitorSend, FullSocketThrowsToTheIssuer) {
  peer.block();
  try {
    issue(MonitorCommand::startVm);
    FAIL() << "nothing was thrown";
  } catch (const rt::InternalException& e) {
    EXPECT_STREQ(e.what(), "qemu monitor write failed ");
  }
}

TEST_F(MonitorSend, RequestThatCouldNotBeWrittenIsNotInFlight) {
  peer.block();
  EXPECT_THROW(issue(MonitorCommand::startVm), rt::InternalException);
  EXPECT_FALSE(session->isPendingRequest());
  EXPECT_EQ(session->qmpRequests(), 0U);
  while (!peer.receive().text.empty()) {
  }
  issue(MonitorCommand::queryStatus);
  EXPECT_THAT(peer.takeTexts(),
              ElementsAre("{ \"execute\": \"query-status\",\"id\": \"status\" }\n"));
}

TEST_F(MonitorSend, PeerThatHasGoneThrowsAndRaisesNoSignal) {
  peer.close();
  EXPECT_THROW(issue(MonitorCommand::startVm), rt::InternalException);
}

TEST_F(MonitorSend, ClosedDescriptorThrows) {
  descriptor->close();
  rt::fakes::TraceRecorder traces;
  EXPECT_THROW(issue(MonitorCommand::startVm), rt::InternalException);
  EXPECT_THAT(traces.take(1), ElementsAre("doIssueQmpRequest FAIL: cannot write to qemu monitor, "
                                          "errno: 9"));
}

TEST_F(MonitorSend, ExceptionOfAWriteAfterAReplyReachesTheLoop) {
  issue(MonitorCommand::startVm);
  issue(MonitorCommand::queryStatus);
  peer.send(fakes::returnOf("cont"));
  peer.block();
  EXPECT_THROW(turn(), rt::InternalException);
  EXPECT_THAT(reader->take(), ElementsAre("startVm 4 success cont"));
}

TEST_F(MonitorSend, CommandThatCouldNotBeQueuedWholeLeavesNoPartOfItselfBehind) {
  issue(MonitorCommand::startVm);
  issue(MonitorCommand::queryStatus);
  issue(MonitorCommand::queryChardev);
  peer.send(fakes::returnOf("cont"));
  peer.block();
  EXPECT_THROW(turn(), rt::InternalException);  // queryStatus is lost, queryChardev waits
  EXPECT_THROW(issue(MonitorCommand::backendDel, fakes::backendArgs(0, "tap1", "net1")),
               rt::InternalException);
  EXPECT_EQ(session->qmpRequests(), 0U);
  while (!peer.receive().text.empty()) {
  }
  issue(MonitorCommand::queryStatus);
  advance(5);
  EXPECT_EQ(output->cmdStatus(), MonitorOutput::MonitorCommandStatus::failure);
}

TEST_F(MonitorSend, IsTraced) {
  rt::fakes::TraceRecorder traces;
  const auto file = fakes::fileWith("tap");
  issue(MonitorCommand::backendAdd,
        fakes::backendArgs(static_cast<uint32_t>(file), "tap1", "net1", "nic1"));
  const Lines lines = traces.take();
  const std::string text =
      "{ \"execute\": \"getfd\",\"arguments\": {\"fdname\": \"tap1\"},\"id\": "
      "\"getfd\" }\n";
  EXPECT_THAT(lines,
              Contains(testing::AllOf(
                  testing::StartsWith("8 void Vm::MonitorSm::doIssueQmpRequest("),
                  testing::EndsWith(" for " + text + " with fd " + std::to_string(int{file})))));
  EXPECT_THAT(lines, Contains("9 doIssueQmpRequest written: " + std::to_string(text.size())));
}

}  // namespace

}  // namespace Vm
