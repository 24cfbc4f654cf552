#include <gmock/gmock.h>

#include "shim/OutputLines.h"

namespace shim {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(OutputLines, AreWhole) {
  OutputLines lines;
  EXPECT_THAT(lines.take("one\ntw"), ElementsAre("one"));
  EXPECT_THAT(lines.take("o\r\n\n  \nthree"), ElementsAre("two"));
  EXPECT_THAT(lines.end(), ElementsAre("three"));
  EXPECT_THAT(lines.end(), IsEmpty());
}

TEST(OutputLines, KeepTheLastThatIsNoWarning) {
  OutputLines lines;
  EXPECT_EQ(lines.last(), "");
  lines.take("qemu: no disk\nqemu: warning: hub 0 is not connected to host network\n\n");
  EXPECT_EQ(lines.last(), "qemu: no disk");
}

TEST(OutputLines, KeepALastLineWithoutAnEnd) {
  OutputLines lines;
  lines.take("one\ntwo");
  EXPECT_EQ(lines.last(), "one");
  lines.end();
  EXPECT_EQ(lines.last(), "two");
}

TEST(OutputLines, AreCutWhenTheyAreTooLong) {
  OutputLines lines;
  const auto cut = lines.take(std::string(10'000, 'x'));
  ASSERT_EQ(cut.size(), 2U);
  EXPECT_EQ(cut[0].size(), OutputLines::longestLine);
  EXPECT_EQ(lines.end()[0].size(), 10'000 - 2 * OutputLines::longestLine);
}

}  // namespace
}  // namespace shim
