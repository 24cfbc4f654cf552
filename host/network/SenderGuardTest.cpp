// Which devices have their guest's sender held to the card's address.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/network/SenderFilter.h"
#include "runtime/fakes/TraceRecorder.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const rt::EthAddr ours(rt::String("52:54:00:12:34:01"));
const rt::EthAddr strangers(rt::String("52:54:00:12:34:02"));

// Remembers what was set: "7 52:54:00:12:34:01".
class FakeSenderFilter final : public SenderFilter {
 public:
  std::vector<std::string> done;
  rt::String failure;

  rt::String set(uint32_t device, rt::EthAddr sender) override {
    done.push_back(std::to_string(device) + " " + sender.text().str());
    return failure;
  }
};

class SenderGuardTest : public testing::Test {
 protected:
  std::vector<std::string> told() { return traces.take(1); }

  rt::fakes::TraceRecorder traces;
  FakeSenderFilter filter;
  SenderGuard guard{filter, [](rt::EthAddr address) { return address == ours; }};
};

TEST_F(SenderGuardTest, HoldsTheDevicesOfOurCardsAndNoOthers) {
  guard.deviceIs(7, "macvtap0", ours);
  guard.deviceIs(8, "macvtap1", strangers);
  guard.deviceIs(9, "macvtap0", ours);
  EXPECT_THAT(filter.done, ElementsAre("7 52:54:00:12:34:01", "9 52:54:00:12:34:01"));
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(SenderGuardTest, SaysOnceWhyItCannotAndAgainWhenItCouldMeanwhile) {
  filter.failure = "the kernel has no clsact for it";
  guard.deviceIs(7, "macvtap0", ours);
  guard.deviceIs(8, "macvtap1", ours);
  EXPECT_THAT(told(), ElementsAre(HasSubstr("macvtap0: its guest may send under any address, for "
                                            "that cannot be forbidden: the kernel has no clsact")));
  filter.failure = "";
  guard.deviceIs(9, "macvtap2", ours);
  filter.failure = "the kernel has no clsact for it";
  guard.deviceIs(10, "macvtap3", ours);
  EXPECT_THAT(told(), ElementsAre(HasSubstr("macvtap3")));
}

}  // namespace
}  // namespace host
