// Messages that come again and again.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/base/Repeats.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* file = "Monitor.cpp";

class RepeatsTest : public testing::Test {
 protected:
  // "12 in 60"; "0" when it is not to be written.
  std::string at(double now, const std::string& text = "again", const char* vm = "",
                 unsigned line = 7) {
    const auto count =
        repeats.heard({rt::vmTrace(), 2, file, line, "f", text}, vm, rt::Seconds(now));
    return count.times == 0   ? "0"
           : count.times == 1 ? "1"
                              : std::to_string(count.times) + " in " +
                                    std::to_string(static_cast<int>(count.within.value()));
  }
  std::vector<std::string> dueAt(double now) {
    std::vector<std::string> all;
    for (const auto& each : repeats.due(rt::Seconds(now)))
      all.push_back(std::to_string(each.record.level) + " " + each.record.file + ":" +
                    std::to_string(each.record.line) + " " + counted(each.text, each.count) +
                    (each.vm.empty() ? "" : " of " + each.vm.str()));
    return all;
  }

  Repeats repeats;
};

TEST_F(RepeatsTest, AreWrittenOnceAndThenOnceAMinuteWithTheirNumber) {
  std::vector<std::string> written;
  for (int now = 0; now <= 180; now += 5)
    if (const std::string count = at(now); count != "0")
      written.push_back(std::to_string(now) + ": " + count);
  EXPECT_THAT(written, ElementsAre("0: 1", "60: 12 in 60", "120: 12 in 60", "180: 12 in 60"));
}

TEST_F(RepeatsTest, OfAnotherTextPlaceOrVmAreOthers) {
  EXPECT_EQ(at(0), "1");
  EXPECT_EQ(at(1, "another"), "1");
  EXPECT_EQ(at(2, "again", "web1"), "1");
  EXPECT_EQ(at(3, "again", "web2"), "1");
  EXPECT_EQ(at(4, "again", "", 8), "1");
  EXPECT_EQ(at(5), "0");
  EXPECT_EQ(at(6, "again", "web1"), "0");
}

TEST_F(RepeatsTest, AreNewWhenTheyWereSilentForAMinute) {
  EXPECT_EQ(at(0), "1");
  EXPECT_THAT(dueAt(60), IsEmpty());
  EXPECT_EQ(at(61), "1");
  EXPECT_EQ(at(200), "1") << "also when nobody asked meanwhile";
}

TEST_F(RepeatsTest, ThatComeNoMoreAreToldOfAfterTheMinute) {
  at(0, "again", "web1");
  at(10, "again", "web1");
  at(20, "again", "web1");
  EXPECT_THAT(dueAt(59.9), IsEmpty());
  EXPECT_THAT(dueAt(75), ElementsAre("2 Monitor.cpp:7 again (2 times in 75 s) of web1"));
  EXPECT_THAT(dueAt(1000), IsEmpty());
}

TEST_F(RepeatsTest, AreCountedFromTheLineThatToldOfThem) {
  at(0);
  at(10);
  dueAt(60);
  EXPECT_EQ(at(70), "0");
  EXPECT_THAT(dueAt(119), IsEmpty());
  EXPECT_THAT(dueAt(120), ElementsAre("2 Monitor.cpp:7 again (1 time in 60 s)"));
}

TEST_F(RepeatsTest, AreKnownUpToABoundAndBeyondItWrittenEachTime) {
  for (size_t i = 0; i < Repeats::mostKnown; ++i) EXPECT_EQ(at(0, std::to_string(i)), "1");
  EXPECT_EQ(at(1, "one more"), "1");
  EXPECT_EQ(at(2, "one more"), "1");
  EXPECT_EQ(at(3, "0"), "0");
  EXPECT_EQ(at(61, "one more"), "1") << "there is room again: one is still counted";
  EXPECT_EQ(at(62, "one more"), "0");
  EXPECT_THAT(dueAt(63), ElementsAre("2 Monitor.cpp:7 0 (1 time in 63 s)"));
}

TEST_F(RepeatsTest, ThatAreVeryLongAreWrittenEachTime) {
  const std::string text(Repeats::longestText + 1, 'x');
  EXPECT_EQ(at(0, text), "1");
  EXPECT_EQ(at(1, text), "1");
}

}  // namespace
}  // namespace host
