#include <gmock/gmock.h>

#include "shim/decide/OutputLines.h"

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

TEST(OutputLines, NameThingsAsAnOperatorDoes) {
  const std::map<std::string, std::string> names{{"/dev/fdset/1", "/dev/fdset/1/or/so"},
                                                 {"/dev/fdset/12", "/second"}};
  EXPECT_EQ(withNames("no lock of '/dev/fdset/1' and /dev/fdset/12, nor of /dev/fdset/123", names),
            "no lock of '/dev/fdset/1/or/so' and /second, nor of /dev/fdset/123");
  EXPECT_EQ(withNames("/dev/fdset/1", names), "/dev/fdset/1/or/so");
  EXPECT_EQ(withNames("nothing", names), "nothing");
}

}  // namespace
}  // namespace shim
