#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <stdexcept>

#include "sim/story/Stage.h"
#include "sim/story/Story.h"

namespace sim {
namespace {

TEST(Story, IsReadAsItIsWritten) {
  for (uint64_t seed = 1; seed <= 200; ++seed) {
    const std::string text = toText(storyOf(seed));
    EXPECT_EQ(toText(storyFromText(text)), text);
  }
}

TEST(Story, IsTheSameForTheSameSeedAndAnotherForAnother) {
  EXPECT_EQ(toText(storyOf(7)), toText(storyOf(7)));
  EXPECT_NE(toText(storyOf(7)), toText(storyOf(8)));
}

TEST(Story, HasWhatFollowsAMarkLeftOut) {
  EXPECT_EQ(toText(storyFromText("seed=3 running: +5ms kill-daemon # once failed")),
            "seed=3 running: +5ms kill-daemon");
}

TEST(Story, ThatCannotBeReadIsRefused) {
  for (const char* const text :
       {"seed=1 nowhere=1: ", "seed=1: kill-daemon", "seed=1: +1ms fly", "seed=1: +1ms add vm1",
        "seed=1: +1ms add Ethernet1 1", "seed=1: +1s kill-daemon", "seed=1: +1ms kill-daemon 3"})
    EXPECT_THROW(storyFromText(text), std::invalid_argument) << text;
}

// Swarm testing: what is off leaves room for what else there is.
TEST(Story, HasSomeKindsOfStepSwitchedOff) {
  std::map<Switch, int> without;
  constexpr int stories = 200;
  for (uint64_t seed = 1; seed <= stories; ++seed) {
    std::set<Switch> seen;
    for (const Step& each : storyOf(seed).steps) seen.insert(each.what().group);
    for (size_t i = 0; i < switchCount; ++i)
      if (!seen.contains(static_cast<Switch>(i))) ++without[static_cast<Switch>(i)];
  }
  EXPECT_EQ(without[Switch::operators], 0);
  for (size_t i = 1; i < switchCount; ++i) {
    const auto group = static_cast<Switch>(i);
    if (group == Switch::daemon) continue;  // a daemon that is gone is started in each
    EXPECT_GT(without[group], stories / 4) << wordOf(group);
    EXPECT_LT(without[group], stories * 9 / 10) << wordOf(group);
  }
}

TEST(StepKinds, AreEachSomethingThatCanBeDone) {
  std::set<std::string_view> words;
  for (const StepKind& each : stepKinds()) {
    EXPECT_TRUE(words.insert(each.word).second) << each.word;
    const size_t acts = operatorActs().count(each.word) + processActs().count(each.word) +
                        surroundingsActs().count(each.word);
    EXPECT_EQ(acts, 1U) << each.word;
  }
}

}  // namespace
}  // namespace sim
