// The requests that wait in a session, by index.
#include <gtest/gtest.h>

#include "Vm/Monitor/fakes/MonitorSession.h"
#include "runtime/fakes/ChangeRecorder.h"

namespace Vm {

namespace {

using Lines = std::vector<std::string>;

QmpRequestType request(const char* text, bool more = false) {
  return {MonitorCommand::startVm, 1, text, QmpIdTypes::cont, QmpRequestType::noFd, more};
}

// A session that has had no greeting, so that nothing leaves its queue; the queue is empty. Index 0
// was the capabilities request's.
class QmpRequestQueue : public testing::Test, protected fakes::MonitorSession {
 protected:
  QmpRequestQueue() { session->qmpRequestDelAll(); }
  void fill() {
    for (uint32_t i = 0; i < capacity; ++i) session->qmpRequestEnq(request("full"));
  }
  // The entries from the front, as INDEX:TEXT.
  Lines entries() const {
    Lines all;
    for (const auto& [index, entry] : session->qmpRequestQueue())
      all.push_back(std::to_string(index) + ":" + entry.val.str());
    return all;
  }

  static constexpr uint32_t capacity = 65536;
};

TEST_F(QmpRequestQueue, HoldsTheCapabilitiesRequestOfANewSession) {
  const auto another = rt::make<MonitorSm>(rt::make<MonitorInput>(0U), output, status,
                                           rt::make<rt::FileDescriptor>("none"), clock);
  EXPECT_EQ(another->qmpRequests(), 1U);
  EXPECT_EQ(another->qmpRequest(0).id, QmpIdTypes::enter);
}

TEST_F(QmpRequestQueue, GivesDefaultsWhenEmpty) {
  EXPECT_EQ(session->qmpRequests(), 0U);
  EXPECT_EQ(session->qmpRequestFront(), QmpRequestType());
  EXPECT_EQ(session->qmpRequestBack(), QmpRequestType());
  EXPECT_EQ(session->qmpRequest(0), QmpRequestType());
  EXPECT_EQ(session->qmpRequestDeq(), QmpRequestType());
  EXPECT_EQ(session->qmpRequests(), 0U);
}

TEST_F(QmpRequestQueue, IsFirstInFirstOut) {
  for (const char* text : {"a", "b", "c"}) session->qmpRequestEnq(request(text));
  EXPECT_EQ(session->qmpRequests(), 3U);
  EXPECT_EQ(session->qmpRequestFront(), request("a"));
  EXPECT_EQ(session->qmpRequestBack(), request("c"));
  EXPECT_EQ(session->qmpRequestDeq(), request("a"));
  EXPECT_EQ(session->qmpRequestDeq(), request("b"));
  EXPECT_EQ(session->qmpRequestDeq(), request("c"));
  EXPECT_EQ(session->qmpRequests(), 0U);
}

TEST_F(QmpRequestQueue, GivesGrowingIndexes) {
  session->qmpRequestEnq(request("a"));
  session->qmpRequestEnq(request("b"));
  session->qmpRequestDeq();
  session->qmpRequestEnq(request("c"));
  EXPECT_EQ(entries(), (Lines{"2:b", "3:c"}));
}

TEST_F(QmpRequestQueue, NeverGivesAnIndexTwice) {
  session->qmpRequestEnq(request("a"));
  session->qmpRequestDeq();
  session->qmpRequestEnq(request("b"));
  session->qmpRequestDelAll();
  session->qmpRequestEnq(request("c"));
  EXPECT_EQ(entries(), (Lines{"3:c"}));
}

TEST_F(QmpRequestQueue, EntryUnderAnIndexIsReplaced) {
  session->qmpRequestEnq(request("a"));
  session->qmpRequestEnq(request("b"));
  session->qmpRequestIs(1, request("x"));
  EXPECT_EQ(entries(), (Lines{"1:x", "2:b"}));
}

TEST_F(QmpRequestQueue, EntryUnderAnIndexAheadIsFollowedByTheNext) {
  session->qmpRequestEnq(request("a"));
  session->qmpRequestIs(40, request("x"));
  session->qmpRequestEnq(request("b"));
  EXPECT_EQ(entries(), (Lines{"1:a", "40:x", "41:b"}));
  EXPECT_EQ(session->qmpRequestBack(), request("b"));
}

TEST_F(QmpRequestQueue, EntryIsDeletedByIndex) {
  for (const char* text : {"a", "b", "c"}) session->qmpRequestEnq(request(text));
  session->qmpRequestDel(2);
  session->qmpRequestDel(77);
  EXPECT_EQ(entries(), (Lines{"1:a", "3:c"}));
  EXPECT_EQ(session->qmpRequest(2), QmpRequestType());
  session->qmpRequestDeq();
  EXPECT_EQ(session->qmpRequestFront(), request("c"));
}

TEST_F(QmpRequestQueue, IsReadAndDeletedByGenericAccess) {
  session->qmpRequestEnq(request("a"));
  session->qmpRequestEnq(request("b"));
  const auto* const queue = session->type().find("qmpRequest");
  ASSERT_NE(queue, nullptr);
  EXPECT_EQ(queue->keys(*session), (std::vector<rt::String>{"1", "2"}));
  EXPECT_EQ(queue->memberText(*session, "1"), request("a").text());
  EXPECT_EQ(queue->memberText(*session, "9"), "");
  queue->memberDel(*session, "1");
  EXPECT_EQ(entries(), (Lines{"2:b"}));
}

TEST_F(QmpRequestQueue, TellsOfEachChangeUnderItsIndex) {
  const auto changes = rt::make<rt::fakes::ChangeRecorder>();
  changes->watch(session);
  session->qmpRequestEnq(request("a"));
  session->qmpRequestIs(1, request("b"));
  session->qmpRequestIs(1, request("b"));
  session->qmpRequestIs(5, request("c"));
  session->qmpRequestDel(3);
  session->qmpRequestDel(5);
  session->qmpRequestDeq();
  session->qmpRequestDeq();
  EXPECT_EQ(changes->take(), (Lines{"Vm::MonitorSm.qmpRequest[1]", "Vm::MonitorSm.qmpRequest[1]",
                                    "Vm::MonitorSm.qmpRequest[5]", "Vm::MonitorSm.qmpRequest[5]",
                                    "Vm::MonitorSm.qmpRequest[1]"}));
}

TEST_F(QmpRequestQueue, ThrowsWhenFullAndIsUnchanged) {
  fill();
  EXPECT_THROW(session->qmpRequestEnq(request("too much")), rt::QueueFullException);
  EXPECT_THROW(session->qmpRequestIs(1'000'000, request("too much")), rt::QueueFullException);
  EXPECT_EQ(session->qmpRequests(), capacity);
  EXPECT_EQ(session->qmpRequestBack(), request("full"));
}

TEST_F(QmpRequestQueue, EntryOfAFullQueueCanBeReplaced) {
  fill();
  session->qmpRequestIs(1, request("x"));
  EXPECT_EQ(session->qmpRequestFront(), request("x"));
}

TEST_F(QmpRequestQueue, CommandThatDoesNotFitThrowsToItsIssuer) {
  fill();
  EXPECT_THROW(issue(MonitorCommand::queryStatus), rt::QueueFullException);
}

TEST_F(QmpRequestQueue, IsUsedOnAfterItWasFull) {
  fill();
  EXPECT_THROW(issue(MonitorCommand::queryStatus), rt::QueueFullException);
  session->qmpRequestDelAll();
  hear(fakes::greeting());
  EXPECT_EQ(converse().size(), 2U);
  EXPECT_EQ(reader->take().back(), "queryChardev 4 success pty:/dev/pts/3");
}

}  // namespace

}  // namespace Vm
