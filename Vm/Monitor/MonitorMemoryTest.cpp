// What a long session takes of memory.
#include <gtest/gtest.h>

#include "Vm/Monitor/fakes/MonitorSession.h"
#include "runtime/fakes/AllocationCounter.h"

namespace Vm {

namespace {

class MonitorMemory : public testing::Test, protected fakes::MonitorSession {
 protected:
  MonitorMemory() {
    connect();
    reader->onResult = [this] { ++results_; };
  }

  // One after the other, each until its result is there.
  void runCommands(int count) {
    const auto args = fakes::backendArgs(0, "tap1", "net1", "nic1");
    for (int i = 0; i < count; ++i) {
      issue(static_cast<MonitorCommand>(1 + i % 5), args);
      converse();
    }
    reader->take();
  }

  int results_ = 0;
};

TEST_F(MonitorMemory, DoesNotGrowWithCommands) {
  runCommands(100);
  const size_t before = rt::fakes::liveBytes();
  runCommands(5'000);
  EXPECT_EQ(results_, 5'100);
  EXPECT_LE(rt::fakes::liveBytes(), before + 256);
  EXPECT_EQ(session->qmpRequests(), 0U);
}

TEST_F(MonitorMemory, DoesNotGrowWithEventsErrorsAndUnknownReplies) {
  const auto hearSome = [this](int count) {
    for (int i = 0; i < count; ++i)
      hear(fakes::eventOf("NIC_RX_FILTER_CHANGED") + fakes::errorOf("netdev") +
           fakes::returnOf("nobody"));
  };
  hearSome(100);
  const size_t before = rt::fakes::liveBytes();
  hearSome(3'000);
  EXPECT_LE(rt::fakes::liveBytes(), before + 256);
}

TEST_F(MonitorMemory, DoesNotGrowWithTimeouts) {
  const auto timeOut = [this](int count) {
    for (int i = 0; i < count; ++i) {
      issue(MonitorCommand::backendAdd);
      advance(5);
      peer.take();
    }
    reader->take();
  };
  timeOut(100);
  const size_t before = rt::fakes::liveBytes();
  timeOut(2'000);
  EXPECT_EQ(results_, 2'100);
  EXPECT_LE(rt::fakes::liveBytes(), before + 256);
  EXPECT_EQ(session->qmpRequests(), 0U);
}

TEST_F(MonitorMemory, OfTheQueueIsGivenBack) {
  const size_t before = rt::fakes::liveBytes();
  for (int i = 0; i < 3'000; ++i) issue(MonitorCommand::queryStatus);
  EXPECT_EQ(session->qmpRequests(), 2'999U);
  EXPECT_GT(rt::fakes::liveBytes(), before + 100'000);
  converse();
  reader->take();
  EXPECT_EQ(results_, 3'000);
  EXPECT_EQ(session->qmpRequests(), 0U);
  EXPECT_LE(rt::fakes::liveBytes(), before + 4096);
}

TEST_F(MonitorMemory, OfASessionIsGivenBack) {
  const size_t with = rt::fakes::liveBytes();
  destroy();
  EXPECT_LT(rt::fakes::liveBytes(), with);
  const size_t before = rt::fakes::liveBytes();
  for (int i = 0; i < 100; ++i)
    rt::make<MonitorSm>(rt::make<MonitorInput>(0U), output, status, descriptor, clock);
  EXPECT_EQ(rt::fakes::liveBytes(), before);
}

}  // namespace

}  // namespace Vm
