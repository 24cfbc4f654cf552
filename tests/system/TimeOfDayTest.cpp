// The time of day jumps, as when a switch hears of the time after its start. Sets the clock of the
// machine, so it is run only where that is one of its own.
#include <gmock/gmock.h>

#include <ctime>
#include <fstream>
#include <iterator>

#include "tests/system/DaemonFixture.h"

namespace host::fakes {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr time_t day = 86'400;

class TimeOfDay : public DaemonFixture {
 protected:
  void SetUp() override {
    std::ifstream file("/proc/cmdline");
    const std::string parameters{std::istreambuf_iterator<char>(file), {}};
    ASSERT_THAT(parameters, HasSubstr("run-in-linux")) << "this machine's clock is not ours";
  }
  static void jump(time_t seconds) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    now.tv_sec += seconds;
    ASSERT_EQ(clock_settime(CLOCK_REALTIME, &now), 0);
  }
  // The agent asks every 5 s.
  bool isPolledAgain() const {
    const auto count = [] {
      std::ifstream file("/var/run/punctual.requests");
      const std::string all{std::istreambuf_iterator<char>(file), {}};
      int found = 0;
      for (size_t at = all.find("query-status"); at != std::string::npos;
           at = all.find("query-status", at + 1))
        ++found;
      return found;
    };
    const int before = count();
    return waitUntil([&] { return count() > before; }, 15);
  }
};

TEST_F(TimeOfDay, ThatJumpsStopsNoPollAndNoGuestAndNoWaitOfAnOperator) {
  world.start();
  runVm("punctual");
  const auto guest = world.guests("punctual");
  EXPECT_TRUE(isPolledAgain());
  jump(day);
  EXPECT_TRUE(isPolledAgain());
  jump(-2 * day);
  EXPECT_TRUE(isPolledAgain());
  EXPECT_EQ(world.guests("punctual"), guest);
  EXPECT_THAT(world.log(), Not(HasSubstr("FAIL")));
  // A wait and an end that are asked for after it.
  EXPECT_EQ(world.vmctl({"wait", "punctual", "--for", "state=Stopped", "--timeout", "1"}).status,
            7);
  world.ctl({"disable", "punctual", "--wait", "--timeout", "20"});
  EXPECT_TRUE(isOff("punctual"));
}

}  // namespace
}  // namespace host::fakes
