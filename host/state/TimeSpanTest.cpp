#include <gtest/gtest.h>

#include "host/state/TimeSpan.h"

namespace host {
namespace {

TEST(TimeSpanText, IsAsLongAsPeopleWantIt) {
  constexpr uint64_t second = 1000;
  EXPECT_EQ(spanText(999), "0 s");
  EXPECT_EQ(spanText(59 * second), "59 s");
  EXPECT_EQ(spanText(250 * second), "4 min 10 s");
  EXPECT_EQ(spanText(120 * second), "2 min");
  EXPECT_EQ(spanText(7'500 * second), "2 h 5 min");
  EXPECT_EQ(spanText((3 * 86'400 + 4 * 3'600) * second), "3 d 4 h");
}

}  // namespace
}  // namespace host
