// The loop on a kernel before 5.11, which waits for whole milliseconds only. In place of its calls
// stand two that tell what they were asked for, and do not wait.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>

#include <cerrno>
#include <limits>
#include <utility>
#include <vector>

#include "runtime/fakes/LoopFixture.h"
#include "runtime/loop/DescriptorWatcher.h"

namespace {

int exactWaits = 0;
std::vector<int> waits;  // in milliseconds
int failure = 0;         // what the next of these fails with

}  // namespace

extern "C" {

int epoll_pwait2(int /*epoll*/, epoll_event* /*events*/, int /*most*/, const timespec* /*timeout*/,
                 const sigset_t* /*mask*/) {
  ++exactWaits;
  errno = ENOSYS;
  return -1;
}

int epoll_wait(int epoll, epoll_event* events, int most, int timeout) {
  waits.push_back(timeout);
  if (failure != 0) {
    errno = std::exchange(failure, 0);
    return -1;
  }
  return epoll_pwait(epoll, events, most, 0, nullptr);
}
}

namespace rt {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::SizeIs;

constexpr int longest = std::numeric_limits<int>::max();

class OldKernel : public fakes::LoopTest {
 protected:
  OldKernel() {
    exactWaits = 0;
    waits.clear();
  }

  DescriptorWatcher watcher;
};

TEST_F(OldKernel, AWaitIsRoundedUpToMilliseconds) {
  for (const double seconds : {0.0, 1e-9, 0.001, 0.0010001, 1.5, 5.0})
    EXPECT_FALSE(watcher.wait(Seconds(seconds))) << seconds;
  EXPECT_THAT(waits, ElementsAre(0, 1, 1, 2, 1500, 5000));
}

TEST_F(OldKernel, AWaitIsNeverLongerThanTheKernelCanCount) {
  for (const double seconds : {3e6, 9e8}) watcher.wait(Seconds(seconds));
  EXPECT_THAT(waits, ElementsAre(longest, longest));
}

TEST_F(OldKernel, AWaitForEverIsOne) {
  watcher.wait(Seconds::infinity());
  EXPECT_THAT(waits, ElementsAre(-1));
}

TEST_F(OldKernel, TheNewCallIsTriedOnce) {
  for (int i = 0; i < 3; ++i) watcher.wait(Seconds(1));
  EXPECT_EQ(exactWaits, 1);
  EXPECT_THAT(waits, SizeIs(3));
}

TEST_F(OldKernel, AWaitThatASignalEndsFindsNothing) {
  failure = EINTR;
  EXPECT_FALSE(watcher.wait(Seconds(1)));
  EXPECT_FALSE(watcher.moreMayBeReady());
}

TEST_F(OldKernel, AWaitThatFailsIsThrown) {
  failure = EBADF;
  try {
    watcher.wait(Seconds(1));
    FAIL() << "nothing was thrown";
  } catch (const ErrnoException& e) {
    EXPECT_EQ(e.error(), EBADF);
    EXPECT_THAT(e.what(), testing::StartsWith("epoll_wait: "));
  }
}

TEST_F(OldKernel, TheLoopTellsWhatIsReadyAndDue) {
  const auto [own, peer] = fakes::pipeEnds();
  const fakes::Closer end(peer);
  const auto listener = reader("pipe", own);
  const auto machine = sleeper("sleeper", 1000);
  fakes::write(peer, "x");
  manager.turn(Seconds(1));
  EXPECT_THAT(take(), ElementsAre("pipe readable", "sleeper"));
  EXPECT_THAT(waits, Each(0));
}

}  // namespace
}  // namespace rt
