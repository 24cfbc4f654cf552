#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "sim/base/Choices.h"

namespace sim {
namespace {

std::vector<uint64_t> taken(Stream& stream, int count) {
  std::vector<uint64_t> all;
  for (int i = 0; i < count; ++i) all.push_back(stream.below(1000));
  return all;
}

TEST(Choices, AreTheSameForTheSameSeed) {
  Choices a(7);
  Choices b(7);
  Choices c(8);
  const auto first = taken(a.stream("x"), 20);
  EXPECT_EQ(taken(b.stream("x"), 20), first);
  EXPECT_NE(taken(c.stream("x"), 20), first);
}

TEST(Choices, OfOneStreamDoNotDependOnAnothers) {
  Choices alone(7);
  Choices beside(7);
  taken(beside.stream("other"), 5);
  EXPECT_EQ(taken(beside.stream("x"), 9), taken(alone.stream("x"), 9));
}

TEST(Choices, BeginAnewWithAnotherSeed) {
  Choices choices(1);
  Stream& stream = choices.stream("x");
  taken(stream, 3);
  choices.seedIs(7);
  Choices fresh(7);
  EXPECT_EQ(taken(stream, 9), taken(fresh.stream("x"), 9));
}

TEST(Choices, ThatAreFixedAreAsFixedAndTheOthersAsBefore) {
  Choices plain(7);
  auto expected = taken(plain.stream("x"), 5);
  expected[2] = 0;
  Choices fixed(7);
  fixed.fix(fixedChoiceFromText("x#2=0"));
  EXPECT_EQ(taken(fixed.stream("x"), 5), expected);
}

TEST(Choices, ThatAreNotTheMildestAreRecorded) {
  Choices choices(7);
  choices.recordIs(true);
  choices.fix({"x", 1, 0});
  const auto all = taken(choices.stream("x"), 3);
  EXPECT_THAT(choices.recorded(),
              testing::ElementsAre(FixedChoice{"x", 0, all[0]}, FixedChoice{"x", 2, all[2]}));
}

TEST(Choices, BetweenTwoNumbersReachBoth) {
  Choices choices(7);
  Stream& stream = choices.stream("x");
  std::set<uint64_t> seen;
  for (int i = 0; i < 1000; ++i) seen.insert(stream.between(3, 9));
  EXPECT_EQ(*seen.begin(), 3U);
  EXPECT_EQ(*seen.rbegin(), 9U);
}

TEST(FixedChoice, IsReadAsItIsWritten) {
  const FixedChoice choice{"fault.vm1", 4, 17};
  EXPECT_EQ(toText(choice), "fault.vm1#4=17");
  EXPECT_EQ(fixedChoiceFromText(toText(choice)), choice);
  for (const char* const text : {"", "x", "x#1", "x=1", "x#=1", "x#1=", "x#1=a"})
    EXPECT_THROW(fixedChoiceFromText(text), std::invalid_argument) << text;
}

}  // namespace
}  // namespace sim
