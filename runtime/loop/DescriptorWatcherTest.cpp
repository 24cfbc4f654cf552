#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <set>
#include <thread>

#include "runtime/fakes/LoopFixture.h"
#include "runtime/loop/DescriptorWatcher.h"

namespace rt {
namespace {

using fakes::Closer;
using fakes::isAsleep;
using fakes::Listener;
using fakes::Log;
using fakes::pipeEnds;
using fakes::readAll;
using fakes::streamEnds;
using fakes::threadId;
using fakes::write;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using DescriptorWatcherTest = fakes::LoopTest;

// Several that are ready at once.

TEST_F(DescriptorWatcherTest, AllThatAreReadyAreToldInOneTurn) {
  const auto [ownA, peerA] = pipeEnds();
  const auto [ownB, peerB] = streamEnds();
  const Closer endA(peerA);
  const Closer endB(peerB);
  const auto a = reader("a", ownA);
  const auto b = reader("b", ownB);
  write(peerA, "x");
  write(peerB, "x");
  turn();
  EXPECT_THAT(take(), testing::UnorderedElementsAre("a readable", "b readable"));
}

// Each of two does to the other what `act` says, so one is told and the other is not.
void expectOneIsTold(Log& log, const Ptr<Listener>& a, const Ptr<Listener>& b,
                     const std::function<void(Listener&)>& act) {
  a->onReadable = [&] { act(*b); };
  b->onReadable = [&] { act(*a); };
  activityManager().turn(Seconds(0));
  EXPECT_THAT(std::exchange(log, {}), SizeIs(1));
}

TEST_F(DescriptorWatcherTest, OneThatAnotherClosedIsNotTold) {
  const auto [ownA, peerA] = pipeEnds();
  const auto [ownB, peerB] = pipeEnds();
  const Closer endA(peerA);
  const Closer endB(peerB);
  const auto a = reader("a", ownA);
  const auto b = reader("b", ownB);
  write(peerA, "x");
  write(peerB, "x");
  expectOneIsTold(log, a, b, [](Listener& other) { other.descriptor().close(); });
}

TEST_F(DescriptorWatcherTest, OneThatAnotherLostInterestInIsNotTold) {
  const auto [ownA, peerA] = pipeEnds();
  const auto [ownB, peerB] = pipeEnds();
  const Closer endA(peerA);
  const Closer endB(peerB);
  const auto a = reader("a", ownA);
  const auto b = reader("b", ownB);
  write(peerA, "x");
  write(peerB, "x");
  expectOneIsTold(log, a, b, [](Listener& other) { other.descriptor().notifyOnReadableIs(false); });
}

TEST_F(DescriptorWatcherTest, OneThatAnotherRetiredIsNotTold) {
  const auto [ownA, peerA] = pipeEnds();
  const auto [ownB, peerB] = pipeEnds();
  const Closer endA(peerA);
  const Closer endB(peerB);
  const auto a = reader("a", ownA);
  const auto b = reader("b", ownB);
  write(peerA, "x");
  write(peerB, "x");
  expectOneIsTold(log, a, b, [](Listener& other) { other.retire(); });
}

TEST_F(DescriptorWatcherTest, OneThatAnotherDestroyedIsNotTold) {
  const auto [ownA, peerA] = pipeEnds();
  const auto [ownB, peerB] = pipeEnds();
  const Closer endA(peerA);
  const Closer endB(peerB);
  auto a = reader("a", ownA);
  auto b = reader("b", ownB);
  a->onReadable = [&] { b = nullptr; };
  b->onReadable = [&] { a = nullptr; };
  write(peerA, "x");
  write(peerB, "x");
  turn();
  EXPECT_THAT(take(), SizeIs(1));
  EXPECT_NE(a == nullptr, b == nullptr);
}

TEST_F(DescriptorWatcherTest, AMachineMayBeDroppedByItsOwnHandler) {
  const auto [own, peer] = pipeEnds();
  const Closer end(peer);
  auto a = reader("a", own);
  a->onReadable = [&] { a = nullptr; };
  write(peer, "x");
  turn();
  EXPECT_THAT(take(), ElementsAre("a readable"));
  EXPECT_FALSE(fakes::isOpen(own));
}

TEST_F(DescriptorWatcherTest, ANumberUsedAgainIsNotToldOfTheOldOnesEvent) {
  const auto [ownA, peerA] = pipeEnds();
  const auto [ownB, peerB] = pipeEnds();
  const auto [spare, peerC] = pipeEnds();
  const Closer endA(peerA);
  const Closer endB(peerB);
  const Closer endC(peerC);
  const Closer spareEnd(spare);
  const auto a = reader("a", ownA);
  const auto b = reader("b", ownB);
  const auto c = reader("c", -1);
  // Whichever is told first has the other's number taken over by c, which has nothing to read.
  const auto takeOver = [&, from = spare](Listener& other) {
    const int number = other.descriptor().descriptor();
    other.descriptor().close();
    ASSERT_EQ(dup2(from, number), number);
    c->descriptor().descriptorIs(number);
  };
  a->onReadable = [&] { takeOver(*b); };
  b->onReadable = [&] { takeOver(*a); };
  write(peerA, "x");
  write(peerB, "x");
  turn();
  EXPECT_THAT(take(), SizeIs(1));
  write(peerC, "x");
  a->descriptor().close();
  b->descriptor().close();
  turn();
  EXPECT_THAT(take(), ElementsAre("c readable"));
}

TEST_F(DescriptorWatcherTest, AnExceptionKeepsNoOtherFromBeingTold) {
  const auto [ownA, peerA] = pipeEnds();
  const auto [ownB, peerB] = pipeEnds();
  const Closer endA(peerA);
  const Closer endB(peerB);
  const auto a = reader("a", ownA);
  const auto b = reader("b", ownB);
  const auto readAndThrow = [](const Listener& listener) {
    readAll(listener.descriptor().descriptor());
    throw Exception("a handler fails");
  };
  a->onReadable = [&] { readAndThrow(*a); };
  b->onReadable = [&] { readAndThrow(*b); };
  write(peerA, "x");
  write(peerB, "x");
  EXPECT_THROW(turn(), Exception);
  EXPECT_THAT(take(), testing::UnorderedElementsAre("a readable", "b readable"));
}

TEST_F(DescriptorWatcherTest, ThoseThatAreNeverReadDoNotKeepOthersFromBeingTold) {
  std::vector<Ptr<Listener>> readers;
  std::vector<std::unique_ptr<Closer>> ends;
  for (int i = 0; i < 100; ++i) {
    const auto [own, peer] = pipeEnds();
    readers.push_back(reader(std::to_string(i), own));
    ends.push_back(std::make_unique<Closer>(peer));
    write(peer, "x");
  }
  turn();
  turn();
  const Log told = take();
  EXPECT_THAT(std::set<std::string>(told.begin(), told.end()), SizeIs(100));
}

// Hang-ups. A guest's QEMU closes its monitor, a stream, shortly before its end of a pipe.

TEST_F(DescriptorWatcherTest, APipesEndIsToldBeforeAStreamsThatCameFirst) {
  const auto [monitorEnd, monitorPeer] = streamEnds();
  const auto [pipeEnd, pipePeer] = pipeEnds();
  const auto monitor = reader("monitor", monitorEnd);
  const auto pipe = reader("pipe", pipeEnd);
  close(monitorPeer);
  close(pipePeer);
  turn();
  EXPECT_THAT(take(), ElementsAre("pipe readable", "monitor readable"));
}

TEST_F(DescriptorWatcherTest, APipesEndIsToldBeforeAStreamsThatHasDataLeft) {
  const auto [monitorEnd, monitorPeer] = streamEnds();
  const auto [pipeEnd, pipePeer] = pipeEnds();
  const auto monitor = reader("monitor", monitorEnd);
  const auto pipe = reader("pipe", pipeEnd);
  write(monitorPeer, "x");
  close(monitorPeer);
  close(pipePeer);
  turn();
  EXPECT_THAT(take(), ElementsAre("pipe readable", "monitor readable"));
}

TEST_F(DescriptorWatcherTest, APipesEndIsToldBeforeAStreamsThatIsWatchedForWritingOnly) {
  const auto [monitorEnd, monitorPeer] = streamEnds();
  const auto [pipeEnd, pipePeer] = pipeEnds();
  const auto monitor = reader("monitor", monitorEnd);
  monitor->descriptor().notifyOnReadableIs(false);
  monitor->descriptor().notifyOnWritableIs(true);
  const auto pipe = reader("pipe", pipeEnd);
  fakes::fill(monitorEnd);
  close(monitorPeer);
  close(pipePeer);
  turn();
  EXPECT_THAT(take(), ElementsAre("pipe readable", "monitor writable"));
}

TEST_F(DescriptorWatcherTest, APipesEndIsToldBeforeDataThatCameFirst) {
  const auto [monitorEnd, monitorPeer] = streamEnds();
  const Closer monitorPeerEnd(monitorPeer);
  const auto [pipeEnd, pipePeer] = pipeEnds();
  const auto monitor = reader("monitor", monitorEnd);
  const auto pipe = reader("pipe", pipeEnd);
  write(monitorPeer, "x");
  close(pipePeer);
  turn();
  EXPECT_THAT(take(), ElementsAre("pipe readable", "monitor readable"));
}

TEST_F(DescriptorWatcherTest, APipesEndWithUnreadDataIsToldAsReadableBeforeTheStreams) {
  const auto [monitorEnd, monitorPeer] = streamEnds();
  const auto [pipeEnd, pipePeer] = pipeEnds();
  const auto monitor = reader("monitor", monitorEnd);
  const auto pipe = reader("pipe", pipeEnd);
  std::string data;
  pipe->onReadable = [&, from = pipeEnd] { data = readAll(from); };
  close(monitorPeer);
  write(pipePeer, "last words");
  close(pipePeer);
  turn();
  EXPECT_THAT(take(), ElementsAre("pipe readable", "monitor readable"));
  EXPECT_EQ(data, "last words");
}

TEST_F(DescriptorWatcherTest, OfTwoGuestsThatEndTogetherBothPipesAreToldBeforeBothStreams) {
  const auto [firstEnd, firstPeer] = streamEnds();
  const auto [secondEnd, secondPeer] = streamEnds();
  const auto [firstPipeEnd, firstPipePeer] = pipeEnds();
  const auto [secondPipeEnd, secondPipePeer] = pipeEnds();
  const auto first = reader("first", firstEnd);
  const auto second = reader("second", secondEnd);
  const auto firstPipe = reader("first's pipe", firstPipeEnd);
  const auto secondPipe = reader("second's pipe", secondPipeEnd);
  for (const int peer : {firstPeer, secondPeer, firstPipePeer, secondPipePeer}) close(peer);
  turn();
  EXPECT_THAT(take(), ElementsAre("first's pipe readable", "second's pipe readable",
                                  "first readable", "second readable"));
}

TEST_F(DescriptorWatcherTest, AStreamsEndIsToldInTheSameTurnThoughNoPipeEnds) {
  const auto [monitorEnd, monitorPeer] = streamEnds();
  const auto [pipeEnd, pipePeer] = pipeEnds();
  const Closer pipePeerEnd(pipePeer);
  const auto monitor = reader("monitor", monitorEnd);
  const auto pipe = reader("pipe", pipeEnd);
  close(monitorPeer);
  turn();
  EXPECT_THAT(take(), ElementsAre("monitor readable"));
}

TEST_F(DescriptorWatcherTest, APipeThatIsNotWatchedIsNotToldOfItsEnd) {
  const auto [monitorEnd, monitorPeer] = streamEnds();
  const auto [pipeEnd, pipePeer] = pipeEnds();
  const auto monitor = reader("monitor", monitorEnd);
  const auto pipe = make<Listener>("pipe", log);
  pipe->descriptor().descriptorIs(pipeEnd);
  close(monitorPeer);
  close(pipePeer);
  turn();
  EXPECT_THAT(take(), ElementsAre("monitor readable"));
}

// The pipe's end is closed once the loop, which has found the stream's end already, waits for it.
// An attempt says nothing when this thread was not let run within the 5 ms that the loop waits.
TEST_F(DescriptorWatcherTest, APipesEndThatComesShortlyAfterAStreamsIsToldFirst) {
  using Time = std::chrono::steady_clock;
  const int loopThread = threadId();
  bool inTime = false;
  for (int attempt = 0; attempt < 1000 && !inTime; ++attempt) {
    const auto [monitorEnd, monitorPeer] = streamEnds();
    const auto [pipeEnd, pipePeer] = pipeEnds();
    const auto monitor = reader("monitor", monitorEnd);
    const auto pipe = reader("pipe", pipeEnd);
    close(monitorPeer);
    std::atomic<bool> over = false;
    Time::time_point closed;
    std::atomic<bool> started = false;
    std::thread guest([&, peer = pipePeer] {
      started = true;
      while (!isAsleep(loopThread) && !over) {
      }
      const bool late = over;
      close(peer);
      closed = late ? Time::time_point::max() : Time::now();
    });
    while (!started) {
    }
    const auto start = Time::now();
    turn();
    over = true;
    guest.join();
    inTime = closed < start + std::chrono::milliseconds(5);
    const Log told = take();
    if (inTime) {
      EXPECT_THAT(told, ElementsAre("pipe readable", "monitor readable"));
    }
  }
  EXPECT_TRUE(inTime) << "no attempt was in time";
}

// The watcher itself.

TEST_F(DescriptorWatcherTest, FindsNothingWhenNothingIsReady) {
  const auto [own, peer] = pipeEnds();
  const Closer end(peer);
  const auto a = reader("a", own);
  EXPECT_FALSE(manager.descriptors().wait(Seconds(0)));
}

TEST_F(DescriptorWatcherTest, TellsWhatItFoundOnce) {
  const auto [own, peer] = pipeEnds();
  const Closer end(peer);
  const auto a = reader("a", own);
  write(peer, "x");
  ASSERT_TRUE(manager.descriptors().wait(Seconds(0)));
  FirstException failures;
  manager.descriptors().dispatch(failures);
  EXPECT_THAT(take(), ElementsAre("a readable"));
  manager.descriptors().dispatch(failures);
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(DescriptorWatcherTest, AWaitThatIsLongerThanTheKernelCountsEndsWithData) {
  const auto [own, peer] = pipeEnds();
  const Closer end(peer);
  const auto a = reader("a", own);
  write(peer, "x");
  EXPECT_TRUE(manager.descriptors().wait(Seconds(1e300)));
}

}  // namespace
}  // namespace rt
