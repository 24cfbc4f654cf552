#include <gtest/gtest.h>

#include "runtime/base/Format.h"

namespace rt {
namespace {

TEST(Format, PutsValuesIntoTheirPlaces) {
  EXPECT_EQ(format("/var/run/%s.monitor", "web1"), "/var/run/web1.monitor");
  EXPECT_EQ(format("-m %d", 512), "-m 512");
  EXPECT_EQ(format("%02x-%u%%", 10, 7U), "0a-7%");
}

TEST(Format, GivesEmptyTextForEmptyText) { EXPECT_EQ(format("%s", ""), ""); }

// Lengths about the size of the buffer that it tries first.
class FormatLength : public ::testing::TestWithParam<size_t> {};
INSTANTIATE_TEST_SUITE_P(Of, FormatLength, ::testing::Values(254, 255, 256, 257, 300, 100'000));

TEST_P(FormatLength, GivesTheWholeText) {
  const std::string text(GetParam(), 'x');
  EXPECT_EQ(format("%s", text.c_str()), text);
}

TEST_P(FormatLength, UsesEveryArgumentAlsoOfLongText) {
  const std::string text(GetParam(), 'x');
  EXPECT_EQ(format("%d %s %d", 1, text.c_str(), 2), "1 " + text + " 2");
}

TEST(Format, KeepsANulThatAValueGives) { EXPECT_EQ(format("a%cb", '\0'), String("a\0b", 3)); }

}  // namespace
}  // namespace rt
