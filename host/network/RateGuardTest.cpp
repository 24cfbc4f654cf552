// Which devices send no more than they may.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/network/RateLimit.h"
#include "runtime/base/Text.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const rt::EthAddr first("52:54:00:00:00:01");
const rt::EthAddr second("52:54:00:00:00:02");

class RateGuardTest : public testing::Test, private RateLimiter {
 protected:
  rt::String set(uint32_t device, uint32_t megabits) override {
    told.push_back(std::to_string(device) + " " + std::to_string(megabits));
    return failure;
  }
  std::vector<std::string> take() { return std::exchange(told, {}); }

  std::map<rt::EthAddr, uint32_t> rates;
  rt::String failure;
  std::vector<std::string> told;
  RateGuard guard{*this, [this](rt::EthAddr address) {
                    const auto found = rates.find(address);
                    return found == rates.end() ? 0 : found->second;
                  }};
};

TEST_F(RateGuardTest, LimitsADeviceWhenItComes) {
  rates[first] = 10;
  guard.deviceIs(7, "macvtap0", first);
  guard.deviceIs(8, "macvtap1", second);
  EXPECT_THAT(take(), ElementsAre("7 10", "8 0"));
}

TEST_F(RateGuardTest, LimitsADeviceThatIsThereWhenItsRateIsAnother) {
  guard.deviceIs(7, "macvtap0", first);
  guard.deviceIs(8, "macvtap1", second);
  take();
  rates[first] = 10;
  guard.ratesAre();
  EXPECT_THAT(take(), ElementsAre("7 10"));
  guard.ratesAre();
  EXPECT_THAT(take(), IsEmpty());
  rates.clear();
  guard.ratesAre();
  EXPECT_THAT(take(), ElementsAre("7 0"));
}

TEST_F(RateGuardTest, LeavesADeviceAloneThatIsGone) {
  guard.deviceIs(7, "macvtap0", first);
  guard.deviceIs(8, "macvtap0", first);
  guard.deviceDel(7);
  take();
  rates[first] = 10;
  guard.ratesAre();
  EXPECT_THAT(take(), ElementsAre("8 10"));
}

TEST_F(RateGuardTest, ForgetsADeviceThatIsGoneUnheard) {
  rates[first] = 10;
  guard.deviceIs(7, "macvtap0", first);
  failure = "no such device";
  rates[first] = 20;
  guard.ratesAre();
  take();
  rates[first] = 30;
  guard.ratesAre();
  EXPECT_THAT(take(), IsEmpty());
}

}  // namespace
}  // namespace host
