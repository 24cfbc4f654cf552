#include <gtest/gtest.h>

#include <limits>

#include "runtime/base/Exception.h"
#include "runtime/net/VlanId.h"

namespace Bridging {
namespace {

TEST(VlanId, IsOneAtFirst) { EXPECT_EQ(VlanId().value(), 1); }

TEST(VlanId, TakesEveryNumberFromOneTo4094) {
  for (int64_t number = 1; number <= 4094; ++number) {
    ASSERT_EQ(VlanId(number).value(), number);
    ASSERT_EQ(VlanId::fromText(std::to_string(number)), VlanId(number));
  }
}

class NoVlanId : public ::testing::TestWithParam<int64_t> {};
INSTANTIATE_TEST_SUITE_P(Of, NoVlanId,
                         ::testing::Values(0, 4095, 65536, 65537, -1, -65535,
                                           (int64_t{1} << 32) + 5, (int64_t{1} << 48) + 1,
                                           std::numeric_limits<int64_t>::min(),
                                           std::numeric_limits<int64_t>::max()));

TEST_P(NoVlanId, ThrowsWithTheNumberInIt) {
  try {
    const VlanId id(GetParam());
    FAIL() << "taken as " << id.value();
  } catch (const rt::RangeException& e) {
    EXPECT_STREQ(e.what(), "Bridging::VlanId::value < 1 or > 4094 not allowed");
    EXPECT_EQ(e.value(), std::to_string(GetParam()));
  }
}

TEST_P(NoVlanId, IsRefusedAsText) {
  EXPECT_EQ(VlanId::fromText(std::to_string(GetParam())), std::nullopt);
}

TEST(VlanId, RefusesTextThatIsNoNumber) {
  for (const char* text : {"", "ten", "1.0", " 1", "1 ", "+1", "0x1", "99999999999999999999"})
    EXPECT_EQ(VlanId::fromText(text), std::nullopt) << text;
}

TEST(VlanId, IsTextInDecimalDigits) {
  EXPECT_EQ(VlanId(4094).text(), "4094");
  EXPECT_EQ(VlanId(1).text(), "1");
}

TEST(VlanId, EqualsAndOrdersByNumber) {
  EXPECT_EQ(VlanId(100), VlanId(100));
  EXPECT_NE(VlanId(100), VlanId(101));
  EXPECT_LT(VlanId(9), VlanId(10));
}

}  // namespace
}  // namespace Bridging
