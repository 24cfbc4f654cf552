#include <gtest/gtest.h>

#include <array>

#include "runtime/base/NearName.h"

namespace rt {
namespace {

constexpr std::array<std::string_view, 4> names{"memory", "vncPort", "e1000", "e1000e"};

std::string_view near(std::string_view text) { return nearName(text, names).value_or("none"); }

TEST(NearName, FindsTheNameWithOneSlip) {
  EXPECT_EQ(near("memry"), "memory");    // missing
  EXPECT_EQ(near("memoory"), "memory");  // added
  EXPECT_EQ(near("menory"), "memory");   // wrong
  EXPECT_EQ(near("emmory"), "memory");   // swapped
}

TEST(NearName, CountsASwapOfNeighboursAsOneSlip) {
  constexpr std::array<std::string_view, 1> abc{"abc"};
  EXPECT_EQ(nearName("acb", abc), "abc");
  EXPECT_EQ(nearName("cab", abc), std::nullopt);
}

TEST(NearName, TakesNoNoticeOfCase) {
  EXPECT_EQ(near("VNCPORT"), "vncPort");
  EXPECT_EQ(near("E1000E"), "e1000e");
}

TEST(NearName, AllowsAThirdOfTheLettersToBeWrongAndNoMore) {
  EXPECT_EQ(near("mamary"), "memory");  // two of six
  EXPECT_EQ(near("mamari"), "none");    // three
}

TEST(NearName, AllowsOneSlipInAShortNameButNotOnlySlips) {
  constexpr std::array<std::string_view, 2> shortNames{"on", "x"};
  EXPECT_EQ(nearName("no", shortNames), "on");
  EXPECT_EQ(nearName("o", shortNames), "on");
  EXPECT_EQ(nearName("y", shortNames), std::nullopt);
}

TEST(NearName, PrefersTheNearestAndThenTheFirst) {
  EXPECT_EQ(near("e1000ee"), "e1000e");
  EXPECT_EQ(near("e1000x"), "e1000");
}

TEST(NearName, TakesThreeLettersForABeginningWhenNothingIsNear) {
  EXPECT_EQ(near("mem"), "memory");
  EXPECT_EQ(near("VNC"), "vncPort");
  EXPECT_EQ(near("e10"), "e1000") << "the first";
  EXPECT_EQ(near("me"), "none");
  EXPECT_EQ(near("memory-size"), "none");
  constexpr std::array<std::string_view, 2> both{"startle", "stars"};
  EXPECT_EQ(nearName("start", both), "stars") << "the near one goes first";
}

TEST(NearName, FindsNothingNearToNothingNorToALongText) {
  EXPECT_EQ(near(""), "none");
  constexpr std::array<std::string_view, 0> noNames{};
  EXPECT_EQ(nearName("memory", noNames), std::nullopt);
  const std::string longName(65, 'a');
  EXPECT_EQ(nearName(longName, std::array<std::string_view, 1>{longName}), std::nullopt);
  EXPECT_EQ(nearName(longName.substr(1), std::array<std::string_view, 1>{longName}), longName);
}

TEST(NearName, IsAskedForOnlyWhenThereIsOne) {
  EXPECT_EQ(didYouMean("memry", names), "; did you mean 'memory'?");
  EXPECT_EQ(didYouMean("colour", names), "");
}

}  // namespace
}  // namespace rt
