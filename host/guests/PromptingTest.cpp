// When a session is prompted.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/guests/Prompting.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PromptingTest : public testing::Test {
 protected:
  void factsAre(const char* state, uint32_t asked, uint32_t answered = 0) {
    prompting.factsAre({.isUp = true, .state = state, .asked = asked, .answered = answered},
                       rt::Seconds(now));
  }
  // What is prompted until then: "ask at 0.25".
  std::vector<std::string> until(double end) {
    std::vector<std::string> all;
    while (prompting.wakeUp() <= rt::Seconds(end)) {
      now = std::max(now, prompting.wakeUp().value());
      const Prompt prompt = prompting.due(rt::Seconds(now));
      const std::string at = " at " + std::to_string(now).substr(0, 4);
      if (prompt == Prompt::ask) all.push_back("ask" + at);
      if (prompt == Prompt::wake) all.push_back("wake" + at);
    }
    now = end;
    return all;
  }

  Prompting prompting;
  double now = 0;
};

TEST_F(PromptingTest, ASessionThatIsNotUpIsLeftAlone) {
  EXPECT_EQ(prompting.wakeUp(), rt::Seconds::infinity());
  prompting.factsAre({.isUp = false, .state = "Stopped"}, rt::Seconds(0));
  EXPECT_EQ(prompting.wakeUp(), rt::Seconds::infinity());
}

TEST_F(PromptingTest, AGuestIsAskedAtOnceAndAFewTimesMoreUntilItRuns) {
  factsAre("Starting", 3);
  EXPECT_THAT(until(14), ElementsAre("ask at 0.00", "ask at 0.25", "ask at 0.75", "ask at 1.75",
                                     "ask at 3.75"));
}

TEST_F(PromptingTest, AGuestIsUnansweredOnceNoneOfItsPollsWasAnsweredForTenSeconds) {
  factsAre("Running", 3, 3);
  now = 9.9;
  factsAre("Running", 4, 3);
  EXPECT_FALSE(prompting.isUnanswered());
  now = 10;
  factsAre("Stopped", 4, 3);
  EXPECT_FALSE(prompting.isUnanswered()) << "nothing was asked that could have been answered";
  factsAre("Running", 5, 3);
  EXPECT_TRUE(prompting.isUnanswered());
  factsAre("Running", 6, 5);
  EXPECT_FALSE(prompting.isUnanswered());
}

TEST_F(PromptingTest, AGuestIsNoLongerUnansweredOnceItsSessionIsAnother) {
  factsAre("Running", 3, 3);
  now = 20;
  factsAre("Running", 4, 3);
  ASSERT_TRUE(prompting.isUnanswered());
  prompting.factsAre({}, rt::Seconds(now));
  EXPECT_FALSE(prompting.isUnanswered());
  factsAre("Starting", 1, 0);
  EXPECT_FALSE(prompting.isUnanswered());
}

TEST_F(PromptingTest, AGuestThatRunsIsNotAsked) {
  factsAre("Starting", 3);
  EXPECT_THAT(until(0.1), ElementsAre("ask at 0.00"));
  factsAre("Stopped", 4);
  factsAre("Running", 4);
  EXPECT_THAT(until(14), IsEmpty());
}

TEST_F(PromptingTest, AGuestThatIsPausedLaterIsNotAsked) {
  factsAre("Running", 3);
  factsAre("Stopped", 3);
  EXPECT_THAT(until(14), IsEmpty());
}

TEST_F(PromptingTest, ASessionThatIsPolledIsNotWoken) {
  factsAre("Running", 3);
  for (uint32_t poll = 1; poll < 100; ++poll) {
    EXPECT_THAT(until(now + 14.9), IsEmpty());
    factsAre("Running", 3 + poll);
  }
}

TEST_F(PromptingTest, ASessionThatIsNotPolledIsWokenUntilItIs) {
  factsAre("Running", 3);
  EXPECT_THAT(until(40), ElementsAre("wake at 15.0", "wake at 30.0"));
  factsAre("Running", 4);
  EXPECT_THAT(until(54), IsEmpty());
}

TEST_F(PromptingTest, ASessionOfAGuestThatIsStartingIsNeverWoken) {
  factsAre("Starting", 3);
  until(14);
  EXPECT_THAT(until(100), IsEmpty());
  factsAre("Stopped", 3);
  EXPECT_THAT(until(106), ElementsAre("wake at 105."));
}

TEST_F(PromptingTest, ANewSessionBeginsAnew) {
  factsAre("Starting", 3);
  until(14);
  prompting.factsAre({}, rt::Seconds(now));
  factsAre("Stopped", 3);
  EXPECT_THAT(until(18), ElementsAre("ask at 14.0", "ask at 14.2", "ask at 14.7", "ask at 15.7",
                                     "ask at 17.7"));
}

TEST_F(PromptingTest, ANumberThatComesRoundIsANewOne) {
  factsAre("Running", ~0U);
  until(14);
  factsAre("Running", 0);
  EXPECT_THAT(until(28), IsEmpty());
}

}  // namespace
}  // namespace host
