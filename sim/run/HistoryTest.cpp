#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/run/Shrinker.h"
#include "sim/run/Zygote.h"

namespace sim {
namespace {

// One thread: the zygotes fork.
TEST(History, IsTheSameForTheSameSeed) {
  Zygotes first;
  Zygotes second;
  for (uint64_t seed = 1; seed <= 6; ++seed) {
    const Outcome one = first.play(storyOf(seed, 20));
    const Outcome other = second.play(storyOf(seed, 20));
    EXPECT_EQ(one.digest, other.digest) << seed;
    EXPECT_EQ(one.calls, other.calls) << seed;
    EXPECT_GT(one.calls, 1000U);
  }
}

TEST(History, IsAnotherForAnotherSeed) {
  Zygotes zygotes;
  EXPECT_NE(zygotes.play(storyOf(1, 20)).digest, zygotes.play(storyOf(2, 20)).digest);
}

TEST(History, OfNothingEndsWell) {
  Zygotes zygotes;
  for (const auto beginning : {Beginning::empty, Beginning::running, Beginning::adopted}) {
    Story story;
    story.beginning = beginning;
    const Outcome outcome = zygotes.play(story);
    EXPECT_FALSE(outcome.failed()) << outcome.verdict.text << outcome.diary;
  }
}

TEST(Outcome, IsReadAsItIsWritten) {
  Outcome outcome;
  outcome.verdict = {"rest", "vm1", "two words\nand a line"};
  outcome.digest = UINT64_MAX;
  outcome.calls = 3;
  outcome.passed = std::chrono::seconds(5);
  outcome.work = std::chrono::milliseconds(7);
  outcome.memory = 9;
  outcome.diary = "a\nb";
  const Outcome read = outcomeFromText(toText(outcome));
  EXPECT_EQ(toText(read), toText(outcome));
  EXPECT_EQ(read.verdict.text, outcome.verdict.text);
  EXPECT_EQ(read.digest, UINT64_MAX);
}

// Fails where both are there, in that order.
Outcome playOfTwo(const Story& story) {
  size_t found = 0;
  for (const Step& each : story.steps) {
    if (found == 0 && each.word() == "kill-daemon") found = 1;
    if (found == 1 && each.word() == "restart") found = 2;
  }
  Outcome outcome;
  if (found == 2) outcome.verdict.clause = "rest";
  return outcome;
}

TEST(Shrinker, LeavesWhatTheFailureNeeds) {
  Story story;
  story.conditions.deathGap = 5;
  for (const char* const text :
       {"+9ms unplug Ethernet1", "+7ms kill-daemon", "+3ms start-daemon", "+2ms flap Ethernet2 7",
        "+1ms restart vm2", "+0ms plug Ethernet1"})
    story.steps.push_back(stepFromText(text));
  EXPECT_EQ(toText(shrunk(story, playOfTwo)), "seed=0 empty: +0ms kill-daemon; +0ms restart vm2");
}

TEST(Shrinker, LeavesAStoryThatEndsWellAsItIs) {
  const Story story = storyOf(3);
  EXPECT_EQ(toText(shrunk(story, [](const Story&) { return Outcome(); })), toText(story));
}

}  // namespace
}  // namespace sim
