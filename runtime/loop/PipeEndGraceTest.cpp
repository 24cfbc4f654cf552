// How long the loop looks for a pipe's end beside a stream that has hung up: at most 5 ms, on a
// clock that only the test moves.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <functional>
#include <map>
#include <vector>

#include "runtime/fakes/LoopFixture.h"

namespace rt {
namespace {

using fakes::Closer;
using fakes::pipeEnds;
using fakes::streamEnds;
using testing::ElementsAre;
using testing::IsEmpty;

// While there is one, CLOCK_MONOTONIC stands still but within poll(), which does not wait: it moves
// the clock on, and does on the way what the test says.
class ManualPoll {
 public:
  ManualPoll() { current = this; }
  ManualPoll(const ManualPoll&) = delete;
  ~ManualPoll() { current = nullptr; }

  static inline ManualPoll* current = nullptr;

  // What happens at that millisecond, and ends the poll() it falls into.
  std::map<int, std::function<void()>> happens;
  // A signal comes then.
  void interruptAt(int millisecond) {
    happens[millisecond] = [this] { interrupted_ = true; };
  }
  int now = 0;             // in milliseconds
  std::vector<int> waits;  // how long each poll() was to last

  int poll(pollfd* descriptors, nfds_t count, int timeout) {
    waits.push_back(timeout);
    const auto next = happens.begin();
    if (next != happens.end() && next->first <= now + timeout) {
      now = next->first;
      const auto action = next->second;
      happens.erase(next);
      action();
    } else {
      now += timeout;
    }
    if (std::exchange(interrupted_, false)) {
      errno = EINTR;
      return -1;
    }
    const timespec none{};
    return ppoll(descriptors, count, &none, nullptr);
  }

 private:
  bool interrupted_ = false;
};

}  // namespace
}  // namespace rt

// In the place of the C library's, for the runtime too.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): its names are reserved ones
extern "C" {
int poll(pollfd* descriptors, nfds_t count, int timeout) {
  if (rt::ManualPoll::current) return rt::ManualPoll::current->poll(descriptors, count, timeout);
  const timespec wait{timeout / 1000, timeout % 1000 * 1'000'000L};
  return ppoll(descriptors, count, timeout < 0 ? nullptr : &wait, nullptr);
}
int clock_gettime(clockid_t clock, timespec* time) noexcept {
  if (!rt::ManualPoll::current || clock != CLOCK_MONOTONIC)
    return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
  *time = {1000, rt::ManualPoll::current->now * 1'000'000L};
  return 0;
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace rt {
namespace {

// A guest as the loop sees it: its monitor, a stream, and its pipe.
class PipeEndGrace : public fakes::LoopTest {
 protected:
  struct Guest {
    Guest(PipeEndGrace& test, const std::string& name, fakes::Ends monitorEnds,
          fakes::Ends pipeEnds)
        : monitorPeer(monitorEnds.peer),
          pipePeer(pipeEnds.peer),
          monitor(test.reader(name + "'s monitor", monitorEnds.own)),
          pipe(test.reader(name + "'s pipe", pipeEnds.own)) {}
    Closer monitorPeer;
    Closer pipePeer;
    const Ptr<fakes::Listener> monitor;
    const Ptr<fakes::Listener> pipe;
  };

  Guest web1{*this, "web1", streamEnds(), pipeEnds()};
  ManualPoll time;
};

TEST_F(PipeEndGrace, IsFiveMillisecondsThenTheStreamIsTold) {
  web1.monitorPeer.close();
  turn();
  EXPECT_THAT(take(), ElementsAre("web1's monitor readable"));
  EXPECT_THAT(time.waits, ElementsAre(5));
}

TEST_F(PipeEndGrace, EndsWithThePipe) {
  web1.monitorPeer.close();
  time.happens[4] = [this] { web1.pipePeer.close(); };
  turn();
  EXPECT_THAT(take(), ElementsAre("web1's pipe readable", "web1's monitor readable"));
  EXPECT_EQ(time.now, 4);
}

TEST_F(PipeEndGrace, IsNotForAPipeThatEndsLater) {
  web1.monitorPeer.close();
  time.happens[6] = [this] { web1.pipePeer.close(); };
  turn();
  EXPECT_THAT(take(), ElementsAre("web1's monitor readable"));
  EXPECT_EQ(time.now, 5);
}

TEST_F(PipeEndGrace, IsSharedByStreamsThatHangUpTogether) {
  Guest web2(*this, "web2", streamEnds(), pipeEnds());
  web1.monitorPeer.close();
  web2.monitorPeer.close();
  time.happens[2] = [this] { web1.pipePeer.close(); };
  turn();
  EXPECT_THAT(take(), ElementsAre("web1's pipe readable", testing::_, testing::_));
  EXPECT_THAT(time.waits, ElementsAre(5, 3));
}

TEST_F(PipeEndGrace, IsNoLongerForASignalInBetween) {
  web1.monitorPeer.close();
  time.interruptAt(1);
  turn();
  EXPECT_THAT(time.waits, ElementsAre(5, 4));
  EXPECT_THAT(take(), ElementsAre("web1's monitor readable"));
}

TEST_F(PipeEndGrace, IsGivenOnceToAStream) {
  web1.monitorPeer.close();
  turn();
  time.waits.clear();
  turn();
  EXPECT_THAT(time.waits, IsEmpty());
}

TEST_F(PipeEndGrace, IsNotGivenWhereNoPipeIsWatched) {
  web1.pipe->descriptor().close();
  web1.monitorPeer.close();
  turn();
  EXPECT_THAT(take(), ElementsAre("web1's monitor readable"));
  EXPECT_THAT(time.waits, IsEmpty());
}

// A peer that closed one direction, and could still be written to.

TEST_F(PipeEndGrace, IsGivenToAHalfClosedStream) {
  ASSERT_EQ(shutdown(web1.monitorPeer, SHUT_WR), 0);
  time.happens[1] = [this] { web1.pipePeer.close(); };
  turn();
  EXPECT_THAT(take(), ElementsAre("web1's pipe readable", "web1's monitor readable"));
  EXPECT_EQ(time.now, 1);
}

TEST_F(PipeEndGrace, IsFiveMillisecondsForAHalfClosedStream) {
  ASSERT_EQ(shutdown(web1.monitorPeer, SHUT_WR), 0);
  turn();
  EXPECT_THAT(take(), ElementsAre("web1's monitor readable"));
  EXPECT_THAT(time.waits, ElementsAre(5));
}

TEST_F(PipeEndGrace, IsNotNeededByAHalfClosedStreamWhosePipeHasEnded) {
  ASSERT_EQ(shutdown(web1.monitorPeer, SHUT_WR), 0);
  web1.pipePeer.close();
  turn();
  EXPECT_THAT(take(), ElementsAre("web1's pipe readable", "web1's monitor readable"));
  EXPECT_THAT(time.waits, IsEmpty());
}

}  // namespace
}  // namespace rt
