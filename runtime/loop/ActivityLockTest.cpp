#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <mutex>
#include <optional>
#include <thread>

#include "runtime/fakes/LoopFixture.h"
#include "runtime/loop/ActivityLock.h"

namespace rt {
namespace {

using fakes::Closer;
using fakes::isAsleep;
using fakes::pipeEnds;
using fakes::threadId;
using fakes::write;
using testing::ElementsAre;

// Joins when it ends, also after a failed assertion.
class Thread {
 public:
  template <class Work>
  explicit Thread(Work work) : thread_(std::move(work)) {}
  Thread(const Thread&) = delete;
  ~Thread() { thread_.join(); }

 private:
  std::thread thread_;
};

class ActivityLockTest : public fakes::LoopTest {
 protected:
  // Whether another thread can take the lock now. Waits for it for ever if not, so where that is
  // what fails, the test does not end.
  bool isTakenByAnotherThread() {
    return std::async(std::launch::async,
                      [&] {
                        const std::lock_guard held(activityLock());
                        return activityLock().heldByThisThread();
                      })
        .get();
  }
};

TEST_F(ActivityLockTest, IsHeldByTheThreadThatTookIt) {
  EXPECT_FALSE(activityLock().heldByThisThread());
  const std::lock_guard held(activityLock());
  EXPECT_TRUE(activityLock().heldByThisThread());
  EXPECT_FALSE(
      std::async(std::launch::async, [] { return activityLock().heldByThisThread(); }).get());
}

TEST_F(ActivityLockTest, IsHeldInHandlersAndNotAfterwards) {
  const auto [own, peer] = pipeEnds();
  const Closer end(peer);
  bool heldByReader = false;
  bool heldBySleeper = false;
  const auto a = reader("a", own);
  const auto b = sleeper("b", 1000);
  a->onReadable = [&] { heldByReader = activityLock().heldByThisThread(); };
  b->onClock = [&] { heldBySleeper = activityLock().heldByThisThread(); };
  write(peer, "x");
  turn();
  EXPECT_TRUE(heldByReader);
  EXPECT_TRUE(heldBySleeper);
  EXPECT_FALSE(activityLock().heldByThisThread());
}

// If the loop held the lock while it waits, this would not end.
TEST_F(ActivityLockTest, IsFreeWhileTheLoopWaits) {
  const auto [own, peer] = pipeEnds();
  const Closer end(peer);
  const auto a = reader("a", own);
  const int loopThread = threadId();
  bool taken = false;
  const Thread other([&, to = peer] {
    while (!isAsleep(loopThread)) std::this_thread::yield();
    {
      const std::lock_guard held(activityLock());
      taken = true;
    }
    write(to, "x");
  });
  manager.turn();
  EXPECT_TRUE(taken);
  EXPECT_THAT(take(), ElementsAre("a readable"));
}

TEST_F(ActivityLockTest, ATurnsHandlersWaitForAnotherThreadThatHoldsIt) {
  std::atomic<bool> held = false;
  const int loopThread = threadId();
  std::atomic<bool> released = false;
  bool releasedBefore = false;
  const auto a = sleeper("a", 1000);
  a->onClock = [&] { releasedBefore = released; };
  const Thread other([&] {
    const std::lock_guard lock(activityLock());
    held = true;
    while (!isAsleep(loopThread)) std::this_thread::yield();
    released = true;
  });
  while (!held) std::this_thread::yield();
  turn();
  EXPECT_TRUE(releasedBefore);
}

TEST_F(ActivityLockTest, AnAnchorLetsAnotherThreadInAndTakesTheLockBack) {
  bool taken = false;
  bool heldWithin = true;
  bool heldAfter = false;
  const auto a = sleeper("a", 1000);
  a->onClock = [&] {
    {
      const UnlockAnchor anchor(activityLock());
      taken = isTakenByAnotherThread();
      heldWithin = activityLock().heldByThisThread();
    }
    heldAfter = activityLock().heldByThisThread();
  };
  turn();
  EXPECT_TRUE(taken);
  EXPECT_FALSE(heldWithin);
  EXPECT_TRUE(heldAfter);
  EXPECT_FALSE(activityLock().heldByThisThread());
}

TEST_F(ActivityLockTest, AnAnchorsEndWaitsForTheThreadThatCameIn) {
  std::atomic<bool> entered = false;
  const int loopThread = threadId();
  std::atomic<bool> left = false;
  bool leftBefore = false;
  std::optional<Thread> other;
  const auto a = sleeper("a", 1000);
  a->onClock = [&] {
    {
      const UnlockAnchor anchor(activityLock());
      other.emplace([&] {
        const std::lock_guard held(activityLock());
        entered = true;
        while (!isAsleep(loopThread)) std::this_thread::yield();
        left = true;
      });
      while (!entered) std::this_thread::yield();
    }
    leftBefore = left;
  };
  turn();
  EXPECT_TRUE(leftBefore);
}

TEST_F(ActivityLockTest, IsReleasedWhenAHandlerThrows) {
  const auto a = sleeper("a", 1000);
  a->onClock = [] { throw Exception("a handler fails"); };
  EXPECT_THROW(turn(), Exception);
  EXPECT_FALSE(activityLock().heldByThisThread());
  EXPECT_TRUE(isTakenByAnotherThread());
}

TEST_F(ActivityLockTest, IsReleasedWhenAHandlerThrowsWithinAnAnchor) {
  const auto a = sleeper("a", 1000);
  a->onClock = [] {
    const UnlockAnchor anchor(activityLock());
    throw Exception("a handler fails");
  };
  EXPECT_THROW(turn(), Exception);
  EXPECT_FALSE(activityLock().heldByThisThread());
  EXPECT_TRUE(isTakenByAnotherThread());
}

TEST_F(ActivityLockTest, TheLoopTurnsOnAfterAHandlerThrew) {
  const auto a = sleeper("a", 1000);
  a->onClock = [] { throw Exception("a handler fails"); };
  EXPECT_THROW(turn(), Exception);
  a->onClock = nullptr;
  a->timeMinIs(1000);
  turn();
  EXPECT_THAT(take(), ElementsAre("a", "a"));
}

using ActivityLockDeathTest = ActivityLockTest;

TEST_F(ActivityLockDeathTest, AnAnchorNeedsTheLock) {
  EXPECT_DEATH({ const UnlockAnchor anchor(activityLock()); },
               "assertion failed: UnlockAnchor: this thread does not hold the activity lock\n");
}

TEST_F(ActivityLockDeathTest, AnAnchorNeedsTheLockOnItsOwnThread) {
  EXPECT_DEATH(
      {
        const std::lock_guard held(activityLock());
        const Thread other([] { const UnlockAnchor anchor(activityLock()); });
      },
      "assertion failed: UnlockAnchor: this thread does not hold the activity lock\n");
}

}  // namespace
}  // namespace rt
