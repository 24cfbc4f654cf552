// Opening a macvtap's character device.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "Vm/VmAgent/fakes/FakeKernel.h"
#include "netlink/TapNode.h"
#include "netlink/fakes/Pauses.h"
#include "runtime/fakes/TraceRecorder.h"

namespace netlink {

namespace {

using fakes::Pauses;
using testing::ElementsAre;
using Vm::fakes::FakeKernel;
using Vm::fakes::KernelCall;

class TapNode : public testing::Test {
 protected:
  Vm::fakes::EffectLog effects;
  FakeKernel kernel{effects};
  rt::fakes::TraceRecorder traces;
  int fd = -1;

  TapNode() { kernel.deviceIs("macvtap0", 7); }
  ~TapNode() override {
    if (fd >= 0) close(fd);
  }
  int open(const char* ifname) { return fd = openTap(ifname, Pauses::count); }

  const Pauses pauses;
};

TEST_F(TapNode, IsNamedByTheDevicesIndex) {
  kernel.nodeIs(7);
  EXPECT_GE(open("macvtap0"), 0);
  EXPECT_THAT(effects.take(), ElementsAre("open /dev/tap7"));
  EXPECT_EQ(kernel.tapOf("macvtap0"), fd);
  EXPECT_THAT(traces.take(), ElementsAre("7 openTap ifname macvtap0"));
}

TEST_F(TapNode, ThatIsThereIsOpenedWithoutAPause) {
  kernel.nodeIs(7);
  open("macvtap0");
  EXPECT_EQ(kernel.calls(KernelCall::openTap), 1);
  EXPECT_EQ(Pauses::counted, 0);
}

TEST_F(TapNode, IsOpenedForReadingAndWriting) {
  kernel.nodeIs(7);
  EXPECT_EQ(fcntl(open("macvtap0"), F_GETFL) & O_ACCMODE, O_RDWR);
}

TEST_F(TapNode, IsClosedInAGuestThatIsStartedLater) {
  kernel.nodeIs(7);
  EXPECT_EQ(fcntl(open("macvtap0"), F_GETFD), FD_CLOEXEC);
}

TEST_F(TapNode, MadeTwoSecondsLateIsOpenedOnThe21stAttempt) {
  kernel.nodeIs(7, 20);
  EXPECT_GE(open("macvtap0"), 0);
  EXPECT_EQ(kernel.calls(KernelCall::openTap), 21);
  EXPECT_EQ(Pauses::counted, 20);
}

TEST_F(TapNode, IsOpenedOnThe101stAttemptToo) {
  kernel.nodeIs(7, 100);
  EXPECT_GE(open("macvtap0"), 0);
  EXPECT_EQ(Pauses::counted, 100);
}

TEST_F(TapNode, ThatIsNeverMadeFailsAfter101AttemptsAnd100Pauses) {
  kernel.nodeIs(7, 101);
  EXPECT_EQ(open("macvtap0"), -1);
  EXPECT_EQ(kernel.calls(KernelCall::openTap), 101);
  EXPECT_EQ(Pauses::counted, 100);
  EXPECT_THAT(traces.take(1), ElementsAre("openTap FAIL: cannot open macvtap device /dev/tap7 "
                                          "check if udevd is running "));
}

TEST_F(TapNode, OfAMissingDeviceIsSoughtUnderIndexZero) {
  EXPECT_EQ(open("macvtap1"), -1);
  EXPECT_EQ(kernel.calls(KernelCall::openTap), 101);
  EXPECT_THAT(traces.take(1), ElementsAre("openTapFAIL: no such device",
                                          "openTap FAIL: cannot open macvtap device /dev/tap0 "
                                          "check if udevd is running "));
}

TEST_F(TapNode, OfAMissingDeviceIsOpenedIfThereIsOneOfIndexZero) {
  kernel.nodeIs(0);
  EXPECT_GE(open("macvtap1"), 0);
  EXPECT_THAT(traces.take(1), ElementsAre("openTapFAIL: no such device"));
  EXPECT_THAT(effects.take(), ElementsAre("open /dev/tap0"));
}

TEST_F(TapNode, IsRetriedWhateverTheErrorIs) {
  kernel.nodeIs(7);
  kernel.fail(KernelCall::openTap, EACCES);
  EXPECT_GE(open("macvtap0"), 0);
  EXPECT_EQ(Pauses::counted, 1);
}

}  // namespace

}  // namespace netlink
