#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "runtime/fakes/ChangeRecorder.h"
#include "runtime/fakes/LoopFixture.h"
#include "runtime/fakes/TraceRecorder.h"
#include "runtime/loop/FileDescriptor.h"

namespace rt {
namespace {

using fakes::Closer;
using fakes::fill;
using fakes::isOpen;
using fakes::Listener;
using fakes::pipeEnds;
using fakes::readAll;
using fakes::streamEnds;
using fakes::tcpEnds;
using fakes::write;
using fakes::writingPipeEnds;
using testing::ElementsAre;
using testing::IsEmpty;

using FileDescriptorTest = fakes::LoopTest;

bool isNonBlocking(int number) { return (fcntl(number, F_GETFL) & O_NONBLOCK) != 0; }

// What is told.

TEST_F(FileDescriptorTest, IsNotWatchedUntilAsked) {
  const auto [own, peer] = pipeEnds();
  const Closer peerEnd(peer);
  const auto a = make<Listener>("a", log);
  a->descriptor().descriptorIs(own);
  write(peer, "x");
  turn();
  EXPECT_THAT(take(), IsEmpty());
  a->descriptor().notifyOnReadableIs(true);
  turn();
  EXPECT_THAT(take(), ElementsAre("a readable"));
}

TEST_F(FileDescriptorTest, MayBeAskedToWatchBeforeItIsBound) {
  const auto [own, peer] = pipeEnds();
  const Closer peerEnd(peer);
  const auto a = reader("a", -1);
  write(peer, "x");
  turn();
  EXPECT_THAT(take(), IsEmpty());
  a->descriptor().descriptorIs(own);
  turn();
  EXPECT_THAT(take(), ElementsAre("a readable"));
}

TEST_F(FileDescriptorTest, IsToldOfDataOnEveryTurnUntilItIsRead) {
  const auto [own, peer] = pipeEnds();
  const Closer peerEnd(peer);
  const auto a = reader("a", own);
  write(peer, "x");
  turn();
  turn();
  EXPECT_THAT(take(), ElementsAre("a readable", "a readable"));
  EXPECT_EQ(readAll(own), "x");
  turn();
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(FileDescriptorTest, IsWritableUntilItIsFull) {
  const auto [own, peer] = streamEnds();
  const Closer peerEnd(peer);
  const auto a = make<Listener>("a", log);
  a->descriptor().descriptorIs(own);
  a->descriptor().notifyOnWritableIs(true);
  turn();
  EXPECT_THAT(take(), ElementsAre("a writable"));
  fill(own);
  turn();
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(FileDescriptorTest, UrgentDataIsAnException) {
  const auto [own, peer] = tcpEnds();
  const Closer peerEnd(peer);
  const auto a = make<Listener>("a", log);
  a->descriptor().descriptorIs(own);
  a->descriptor().notifyOnExceptionIs(true);
  turn();
  EXPECT_THAT(take(), IsEmpty());
  ASSERT_EQ(send(peer, "!", 1, MSG_OOB), 1);
  manager.turn();  // waits for it
  EXPECT_THAT(take(), ElementsAre("a exception"));
}

TEST_F(FileDescriptorTest, APipesEndWithoutDataIsToldAsReadable) {
  const auto [own, peer] = pipeEnds();
  const auto a = reader("a", own);
  close(peer);
  turn();
  EXPECT_THAT(take(), ElementsAre("a readable"));
}

TEST_F(FileDescriptorTest, AStreamsEndIsToldAsReadable) {
  const auto [own, peer] = streamEnds();
  const auto a = reader("a", own);
  close(peer);
  turn();
  EXPECT_THAT(take(), ElementsAre("a readable"));
}

TEST_F(FileDescriptorTest, AStreamThatThePeerNoLongerWritesToIsReadable) {
  const auto [own, peer] = streamEnds();
  const Closer peerEnd(peer);
  const auto a = reader("a", own);
  ASSERT_EQ(shutdown(peer, SHUT_WR), 0);
  turn();
  EXPECT_THAT(take(), ElementsAre("a readable"));
}

TEST_F(FileDescriptorTest, APipeThatNobodyReadsIsToldAsWritableWhenFullToo) {
  const auto [own, peer] = writingPipeEnds();
  const auto a = make<Listener>("a", log);
  a->descriptor().descriptorIs(own);
  a->descriptor().notifyOnWritableIs(true);
  fill(own);
  close(peer);
  turn();
  EXPECT_THAT(take(), ElementsAre("a writable"));
}

TEST_F(FileDescriptorTest, AnEndIsToldAsAllThatIsAskedForInOrder) {
  const auto [own, peer] = streamEnds();
  const auto a = reader("a", own);
  a->descriptor().notifyOnWritableIs(true);
  a->descriptor().notifyOnExceptionIs(true);
  close(peer);
  turn();
  EXPECT_THAT(take(), ElementsAre("a readable", "a writable", "a exception"));
}

TEST_F(FileDescriptorTest, AnEndIsToldAsAnExceptionAlone) {
  const auto [own, peer] = streamEnds();
  const auto a = make<Listener>("a", log);
  a->descriptor().descriptorIs(own);
  a->descriptor().notifyOnExceptionIs(true);
  close(peer);
  turn();
  EXPECT_THAT(take(), ElementsAre("a exception"));
}

TEST_F(FileDescriptorTest, InterestDroppedByAHandlerIsNotToldInTheSameTurn) {
  const auto [own, peer] = streamEnds();
  const Closer peerEnd(peer);
  const auto a = reader("a", own);
  a->descriptor().notifyOnWritableIs(true);
  a->onReadable = [&] { a->descriptor().notifyOnWritableIs(false); };
  write(peer, "x");
  turn();
  EXPECT_THAT(take(), ElementsAre("a readable"));
}

TEST_F(FileDescriptorTest, ClosedByItsReadableHandlerItIsNotToldAsWritable) {
  const auto [own, peer] = streamEnds();
  const Closer peerEnd(peer);
  const auto a = reader("a", own);
  a->descriptor().notifyOnWritableIs(true);
  a->onReadable = [&] { a->descriptor().close(); };
  write(peer, "x");
  turn();
  EXPECT_THAT(take(), ElementsAre("a readable"));
}

TEST_F(FileDescriptorTest, WhatAHandlerBindsAnewIsNotToldOfTheOldOnesEvents) {
  const auto [own, peer] = streamEnds();
  const Closer peerEnd(peer);
  const auto [newOwn, newPeer] = streamEnds();
  const Closer newPeerEnd(newPeer);
  fill(newOwn);  // not writable, unlike the old one
  const auto a = reader("a", own);
  a->descriptor().notifyOnWritableIs(true);
  a->onReadable = [&, bound = newOwn] { a->descriptor().descriptorIs(bound); };
  write(peer, "x");
  turn();
  EXPECT_THAT(take(), ElementsAre("a readable"));
  turn();
  EXPECT_THAT(take(), IsEmpty());
}

TEST_F(FileDescriptorTest, WhileNotificationIsOffItIsNotToldAndDoesNotWakeTheLoop) {
  const auto [own, peer] = pipeEnds();
  const Closer peerEnd(peer);
  const auto a = reader("a", own);
  write(peer, "x");
  a->descriptor().hasNotificationActiveIs(false);
  turn();
  EXPECT_THAT(take(), IsEmpty());
  EXPECT_FALSE(manager.descriptors().wait(Seconds(0)));
  a->descriptor().hasNotificationActiveIs(true);
  turn();
  EXPECT_THAT(take(), ElementsAre("a readable"));
}

TEST_F(FileDescriptorTest, IsReadableOnlyWhileThatIsTold) {
  const auto [own, peer] = pipeEnds();
  const Closer peerEnd(peer);
  const auto a = reader("a", own);
  bool during = false;
  a->onReadable = [&] {
    during = a->descriptor().readable();
    throw Exception("a fails");
  };
  write(peer, "x");
  EXPECT_THROW(turn(), Exception);
  EXPECT_TRUE(during);
  EXPECT_FALSE(a->descriptor().readable());
}

TEST_F(FileDescriptorTest, ARegularFileCannotBeWatched) {
  const auto a = make<FileDescriptor>("exe");
  a->descriptorIs(open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
  try {
    a->notifyOnReadableIs(true);
    FAIL() << "a regular file is watched";
  } catch (const ErrnoException& e) {
    EXPECT_EQ(e.error(), EPERM);
    EXPECT_STREQ(e.what(), "watch exe: Operation not permitted (errno 1)");
  }
}

TEST(FileDescriptorLifeTest, MayOutliveTheLoop) {
  const auto [own, peer] = pipeEnds();
  const Closer peerEnd(peer);
  auto a = make<FileDescriptor>("a");
  {
    const ActivityManager manager;
    a->descriptorIs(own);
    a->notifyOnReadableIs(true);
  }
  a = nullptr;
  EXPECT_FALSE(isOpen(own));
}

// What is owned.

TEST(FileDescriptorOwnershipTest, IsBoundToNothingAtFirst) {
  EXPECT_EQ(make<FileDescriptor>("a")->descriptor(), -1);
}

TEST(FileDescriptorOwnershipTest, BindingAnotherClosesTheOneBefore) {
  const auto [first, second] = pipeEnds();
  const auto a = make<FileDescriptor>("a");
  a->descriptorIs(first);
  a->descriptorIs(second);
  EXPECT_EQ(a->descriptor(), second);
  EXPECT_FALSE(isOpen(first));
  EXPECT_TRUE(isOpen(second));
}

TEST(FileDescriptorOwnershipTest, BindingTheSameNumberAgainClosesNothing) {
  const auto [own, peer] = pipeEnds();
  const Closer peerEnd(peer);
  const auto a = make<FileDescriptor>("a");
  a->descriptorIs(own);
  a->descriptorIs(own);
  EXPECT_TRUE(isOpen(own));
}

TEST(FileDescriptorOwnershipTest, ClosesOnceAndNeverWhatOthersOpenedUnderTheNumberSince) {
  const auto [own, peer] = pipeEnds();
  auto a = make<FileDescriptor>("a");
  a->descriptorIs(own);
  a->close();
  EXPECT_FALSE(isOpen(own));
  EXPECT_EQ(a->descriptor(), -1);
  ASSERT_EQ(dup2(peer, own), own);  // somebody else's now
  const Closer somebodys(own);
  const Closer peerEnd(peer);
  a->close();
  EXPECT_TRUE(isOpen(own));
  a->descriptorIs(-1);
  EXPECT_TRUE(isOpen(own));
  a = nullptr;
  EXPECT_TRUE(isOpen(own));
}

TEST(FileDescriptorOwnershipTest, ClosesWhatIsBoundWhenItEnds) {
  const auto [own, peer] = pipeEnds();
  const Closer peerEnd(peer);
  auto a = make<FileDescriptor>("a");
  a->descriptorIs(own);
  a = nullptr;
  EXPECT_FALSE(isOpen(own));
}

TEST(FileDescriptorOwnershipTest, NonBlockingIsSetOnWhatIsBound) {
  const auto [own, peer] = pipeEnds();
  const Closer peerEnd(peer);
  const auto a = make<FileDescriptor>("a");
  a->descriptorIs(own);
  EXPECT_FALSE(isNonBlocking(own));
  a->nonBlockingIs(true);
  EXPECT_TRUE(isNonBlocking(own));
  a->nonBlockingIs(false);
  EXPECT_FALSE(isNonBlocking(own));
}

TEST(FileDescriptorOwnershipTest, NonBlockingIsSetOnAllThatIsBoundLater) {
  const auto [first, second] = pipeEnds();
  const auto a = make<FileDescriptor>("a");
  a->nonBlockingIs(true);
  a->descriptorIs(first);
  EXPECT_TRUE(isNonBlocking(first));
  a->descriptorIs(second);
  EXPECT_TRUE(isNonBlocking(second));
}

TEST(FileDescriptorOwnershipTest, NonBlockingOfANumberThatIsNotOpenIsRefused) {
  const auto a = make<FileDescriptor>("a");
  a->nonBlockingIs(true);
  try {
    a->descriptorIs(1'000'000);
    FAIL() << "a number that is not open is bound";
  } catch (const ErrnoException& e) {
    EXPECT_EQ(e.error(), EBADF);
  }
}

// What is seen of it.

TEST(FileDescriptorAttributesTest, ItsNumberIsToldWhenItChanges) {
  const auto [own, peer] = pipeEnds();
  const Closer peerEnd(peer);
  const auto a = make<FileDescriptor>("a");
  const auto recorder = make<fakes::ChangeRecorder>();
  recorder->watch(a);
  a->descriptorIs(own);
  a->close();
  EXPECT_THAT(recorder->take(),
              ElementsAre("rt::FileDescriptor.descriptor = " + std::to_string(own),
                          "rt::FileDescriptor.descriptor = -1"));
}

TEST(FileDescriptorAttributesTest, WhatIsWatchedForIsWrittenByName) {
  const auto a = make<FileDescriptor>("a");
  for (const char* name :
       {"notifyOnReadable", "notifyOnWritable", "notifyOnException", "nonBlocking"}) {
    EXPECT_EQ(attributeText(*a, name), "false") << name;
    attributeTextIs(*a, name, "true");
    EXPECT_EQ(attributeText(*a, name), "true") << name;
  }
}

TEST(FileDescriptorAttributesTest, ItsNumberIsReadOnlyByName) {
  const auto a = make<FileDescriptor>("a");
  EXPECT_THROW(attributeTextIs(*a, "descriptor", "1"), AttributeException);
  EXPECT_EQ(a->descriptor(), -1);
}

TEST(FileDescriptorAttributesTest, ATraceHasItsNameAndNumber) {
  fakes::TraceRecorder traces;
  const auto a = make<FileDescriptor>("monitor");
  VM_TRACE(9) << "reading " << *a;
  EXPECT_THAT(traces.take(), ElementsAre("9 reading monitor (descriptor -1)"));
}

}  // namespace
}  // namespace rt
