// Logs that never grow beyond a bound.
#include <gmock/gmock.h>

#include <filesystem>

#include "runtime/base/fakes/TestFolder.h"
#include "shim/keep/BoundedLog.h"

namespace shim {
namespace {

using rt::fakes::contentOf;
using rt::fakes::modeOf;
using rt::fakes::TestFolder;
using testing::MatchesRegex;

TEST(BoundedLog, KeepsOneOlder) {
  const TestFolder folder;
  BoundedLog log(folder / "log", 10);
  log.write("12345");
  log.write("67890");
  EXPECT_EQ(contentOf(folder / "log"), "1234567890");
  log.write("abc");
  EXPECT_EQ(contentOf(folder / "log"), "abc");
  EXPECT_EQ(contentOf(folder / "log.1"), "1234567890");
  log.write("defghijkl");
  EXPECT_EQ(contentOf(folder / "log"), "defghijkl");
  EXPECT_EQ(contentOf(folder / "log.1"), "abc");
}

TEST(BoundedLog, NeverGrowsBeyondItsBound) {
  const TestFolder folder;
  BoundedLog log(folder / "log", 10);
  log.write(std::string(95, 'x'));
  EXPECT_EQ(contentOf(folder / "log").size(), 5U);
  EXPECT_EQ(contentOf(folder / "log.1").size(), 10U);
}

TEST(BoundedLog, NeverGrowsBeyondItsBoundThoughTheOlderCannotBeReplaced) {
  const TestFolder folder;
  std::filesystem::create_directories(folder / "log.1/full");
  BoundedLog log(folder / "log", 10);
  log.write(std::string(95, 'x'));
  EXPECT_EQ(contentOf(folder / "log").size(), 5U);
}

TEST(BoundedLog, GoesOnWhereTheRunBeforeEnded) {
  const TestFolder folder;
  BoundedLog(folder / "log", 10).write("123456");
  EXPECT_EQ(modeOf(folder / "log"), 0640);
  BoundedLog log(folder / "log", 10);
  log.write("7");
  EXPECT_EQ(contentOf(folder / "log"), "1234567");
  log.write("8901");
  EXPECT_EQ(contentOf(folder / "log"), "8901");
}

TEST(BoundedLog, LosesWhatCannotBeWrittenAndGoesOn) {
  const TestFolder folder;
  BoundedLog log(folder / "gone/log", 10);
  log.write("123");
  EXPECT_EQ(modeOf(folder / "gone"), -1);
}

TEST(LogLine, HasItsTimeAndNothingButVisibleText) {
  EXPECT_THAT(
      logLine("qemu", "a\x1b[2J\nb c\x7f~\x1f\xc3\xa9\u202e\xff"),
      MatchesRegex("....-..-..T..:..:..Z qemu: a.x1b.2J.x0ab c.x7f~.x1f\xc3\xa9.u202e.xff\n"));
}

}  // namespace
}  // namespace shim
