// Guests whose shim stands still, with and without the daemon that started them.
#include <gmock/gmock.h>

#include <csignal>

#include "tests/system/GuestFixture.h"

namespace host::fakes {
namespace {

class LostGuest : public GuestFixture {
 protected:
  // The next daemon has the guest's shim before it, which stands still.
  pid_t freezeForTheNext() {
    bootVm("web1");
    const pid_t shim = world.guests("web1").front();
    world.end(SIGKILL);
    kill(shim, SIGSTOP);
    start({"--stop-timeout", "2"});
    EXPECT_TRUE(says("web1", "it goes on, and nobody drives it")) << told("web1");
    return shim;
  }
};

TEST_F(LostGuest, IsToldOfAndTakenUpOnceItsShimAnswersAgain) {
  start();
  const pid_t shim = freezeForTheNext();
  EXPECT_TRUE(says("web1", "its shim does not answer"));
  EXPECT_TRUE(world.hasRow("vmProcess", "web1", R"("endCause":"")"));
  const auto qemus = world.qemus("web1");
  kill(shim, SIGCONT);
  expectShownRunning("web1");
  EXPECT_TRUE(says("web1", "web1 is wanted running and is running"));
  EXPECT_EQ(world.qemus("web1"), qemus);
  expectEcho("web1", "unharmed");
}

TEST_F(LostGuest, IsEndedThoughItsShimStandsStillWhenItIsDisabled) {
  start();
  freezeForTheNext();
  world.ctl({"disable", "web1", "--wait"});
  expectNothingLeftOf("web1");
}

TEST_F(LostGuest, IsStartedAnewThoughItsShimStandsStillWhenItIsRestarted) {
  start();
  const pid_t shim = freezeForTheNext();
  world.ctl({"restart", "web1", "--wait"});
  ASSERT_EQ(world.guests("web1").size(), 1U);
  EXPECT_NE(world.guests("web1").front(), shim);
  EXPECT_TRUE(says("web1", "web1 is wanted running and is running"));
}

TEST_F(LostGuest, OfTheSameDaemonIsHungUntilItsShimAnswersAgain) {
  start();
  runVm("web1");
  const pid_t shim = world.guests("web1").front();
  kill(shim, SIGSTOP);
  EXPECT_TRUE(says("web1", "web1 is wanted running, and is hung")) << told("web1");
  EXPECT_TRUE(says("web1", "its shim does not answer"));
  kill(shim, SIGCONT);
  EXPECT_TRUE(says("web1", "web1 is wanted running and is running")) << told("web1");
}

TEST_F(LostGuest, OfTheSameDaemonIsEndedThoughItsShimStandsStill) {
  start({"--stop-timeout", "2"});
  bootVm("web1");
  kill(world.guests("web1").front(), SIGSTOP);
  world.ctl({"disable", "web1", "--wait"});
  expectNothingLeftOf("web1");
}

}  // namespace
}  // namespace host::fakes
