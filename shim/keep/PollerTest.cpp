// Few descriptors are busy; the others are heard all the same.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "shim/keep/Poller.h"

namespace {

// How many descriptors poll() was told to look at the last time.
nfds_t lookedAt = 0;

}  // namespace

extern "C" {
int __real_poll(pollfd* polled, nfds_t count, int timeout);
int __wrap_poll(pollfd* polled, nfds_t count, int timeout);

int __wrap_poll(pollfd* polled, nfds_t count, int timeout) {
  lookedAt = count;
  return __real_poll(polled, count, timeout);
}
}

namespace shim {
namespace {

struct Pipe {
  Pipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) std::abort();
    out.reset(ends[0]);
    in.reset(ends[1]);
  }
  void say() const { EXPECT_EQ(write(in.number(), "x", 1), 1); }
  void hear() const {
    char byte = 0;
    EXPECT_EQ(read(out.number(), &byte, 1), 1);
  }

  rt::Descriptor out;
  rt::Descriptor in;
};

class PollerTest : public testing::Test {
 protected:
  // What came, an entry each.
  std::vector<short> come(int timeout = 0) {
    std::vector<pollfd> polled = {{busy.out.number(), POLLIN, 0},
                                  {-1, POLLIN, 0},
                                  {first.out.number(), POLLIN, 0},
                                  {second.out.number(), secondsEvents, 0}};
    poller.wait(polled, timeout);
    std::vector<short> all;
    for (const pollfd& each : polled) all.push_back(each.revents);
    return all;
  }
  static std::vector<short> only(size_t place, short what = POLLIN) {
    std::vector<short> all(4, 0);
    all[place] = what;
    return all;
  }

  Pipe busy;
  Pipe first;
  Pipe second;
  short secondsEvents = POLLIN;
  Poller poller{2};
};

const std::vector<short> nothing(4, 0);

TEST_F(PollerTest, HearsTheBusyOnesAgainAndAgain) {
  for (int i = 0; i < 3; ++i) {
    busy.say();
    EXPECT_EQ(come(), only(0));
    busy.hear();
    EXPECT_EQ(come(), nothing);
  }
}

TEST_F(PollerTest, LooksAtTheBusyOnesAndOneMoreWhileTheOthersAreQuiet) {
  come();
  EXPECT_EQ(lookedAt, 4U);
  for (int i = 0; i < 3; ++i) {
    busy.say();
    come();
    EXPECT_EQ(lookedAt, 3U);
  }
  first.say();
  come();
  EXPECT_EQ(lookedAt, 4U);
}

TEST_F(PollerTest, HearsTheOthersHoweverLongTheyWereQuiet) {
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(come(), nothing);
    busy.say();
    EXPECT_EQ(come(), only(0));
    first.say();
    EXPECT_EQ(come(), (std::vector<short>{POLLIN, 0, POLLIN, 0}));
    busy.hear();
    EXPECT_EQ(come(), only(2)) << "until it was heard";
    second.say();
    EXPECT_EQ(come(), (std::vector<short>{0, 0, POLLIN, POLLIN}));
    first.hear();
    second.hear();
  }
}

TEST_F(PollerTest, WakesForOneOfTheOthers) {
  EXPECT_EQ(come(), nothing);
  first.say();
  EXPECT_EQ(come(-1), only(2));
}

TEST_F(PollerTest, HearsAnEnd) {
  EXPECT_EQ(come(), nothing);
  second.in.reset();
  EXPECT_EQ(come(), only(3, POLLHUP));
}

// A process's limit on descriptors, lowered while this lives.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(rlim_t most) {
    getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit lower{most, before_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &lower), 0);
  }
  DescriptorLimit(const DescriptorLimit&) = delete;
  ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  rlimit before_{};
};

TEST_F(PollerTest, HearsAllThoughItsProcessMayOpenFewerByNow) {
  for (const bool wereQuiet : {false, true}) {
    if (wereQuiet) {
      EXPECT_EQ(come(), nothing);
    }
    const DescriptorLimit none(0);
    busy.say();
    EXPECT_EQ(come(-1), only(0));
    first.say();
    EXPECT_EQ(come(-1), (std::vector<short>{POLLIN, 0, POLLIN, 0}));
    busy.hear();
    first.hear();
    EXPECT_EQ(come(5), nothing);
  }
  const DescriptorLimit none(0);
  second.in.reset();
  EXPECT_EQ(come(-1), only(3)) << "an end";
}

TEST_F(PollerTest, ListensForWhatItIsToldToFromNowOn) {
  second.say();
  secondsEvents = 0;
  EXPECT_EQ(come(), nothing);
  EXPECT_EQ(come(), nothing);
  secondsEvents = POLLIN;
  EXPECT_EQ(come(), only(3));
}

TEST_F(PollerTest, ListensToAnotherDescriptorFromNowOn) {
  EXPECT_EQ(come(), nothing);
  Pipe another;
  std::swap(first.in, another.in);
  std::swap(first.out, another.out);
  first.say();
  EXPECT_EQ(come(), only(2));
}

TEST_F(PollerTest, ListensToOneOfTheSameNumberThatTookItsPlaceWhenItHadSpoken) {
  EXPECT_EQ(come(), nothing);
  const int number = first.out.number();
  first.in.reset();
  EXPECT_EQ(come(), only(2, POLLHUP));
  first.out.reset();
  Pipe another;
  ASSERT_EQ(dup2(another.out.number(), number), number);
  first.out.reset(number);
  EXPECT_EQ(come(), nothing);
  EXPECT_EQ(come(), nothing);
  another.say();
  EXPECT_EQ(come(), only(2));
}

}  // namespace
}  // namespace shim
