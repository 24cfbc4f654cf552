// When a VM is switched, and how patiently.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <vector>

#include "host/guests/Pacing.h"

namespace host {

static void PrintTo(Step step, std::ostream* out) {
  constexpr const char* names[] = {"none", "switchOn", "ask", "switchOff", "pulse"};
  *out << names[static_cast<size_t>(step)];
}

namespace {

using testing::ElementsAre;

constexpr VmFacts off{};
constexpr VmFacts wanted{.wanted = true};
constexpr VmFacts running{
    .wanted = true, .switchedOn = true, .statusEnabled = true, .process = true};
constexpr VmFacts startFailed{.wanted = true, .switchedOn = true};

VmFacts with(VmFacts facts, uint64_t restart) {
  facts.restart = restart;
  return facts;
}

class PacingTest : public testing::Test {
 protected:
  Step next(const VmFacts& facts) { return pacing.next(facts, now); }
  // The times, from now on, at which a VM whose start always fails is pulsed.
  std::vector<double> pulses(int count) {
    std::vector<double> times;
    while (static_cast<int>(times.size()) < count) {
      if (next(startFailed) == Step::pulse)
        times.push_back(now.value());
      else
        now = pacing.wakeUp();
    }
    return times;
  }

  rt::Seconds now{0};
  Pacing pacing{0};
};

TEST_F(PacingTest, LeavesAVmOffThatIsNotWanted) { EXPECT_EQ(next(off), Step::none); }

TEST_F(PacingTest, SwitchesOnWhatIsWanted) { EXPECT_EQ(next(wanted), Step::switchOn); }

TEST_F(PacingTest, WaitsUntilTheProcessOfBeforeIsGone) {
  VmFacts facts = wanted;
  facts.process = true;
  EXPECT_EQ(next(facts), Step::none);
  EXPECT_EQ(pacing.wakeUp(), rt::Seconds::infinity()) << "it will be told";
  EXPECT_EQ(next(wanted), Step::switchOn);
}

TEST_F(PacingTest, SwitchesOffWhatIsNotWantedAnyMore) {
  VmFacts facts = running;
  facts.wanted = false;
  EXPECT_EQ(next(facts), Step::switchOff);
}

TEST_F(PacingTest, LeavesARunningVmAlone) {
  EXPECT_EQ(next(running), Step::none);
  EXPECT_EQ(pacing.wakeUp(), rt::Seconds::infinity());
}

TEST_F(PacingTest, LeavesAVmAloneWhoseGuestHasEndedByItself) {
  VmFacts ended = running;
  ended.process = false;
  EXPECT_EQ(next(ended), Step::none);
  EXPECT_EQ(pacing.wakeUp(), rt::Seconds::infinity());
}

TEST_F(PacingTest, TriesAFailedStartAgainMoreAndMorePatiently) {
  EXPECT_THAT(pulses(9), ElementsAre(1, 3, 7, 15, 31, 63, 123, 183, 243));
}

TEST_F(PacingTest, DoesNotPulseBeforeTheTime) {
  EXPECT_EQ(next(startFailed), Step::none);
  now = rt::Seconds(0.999);
  EXPECT_EQ(next(startFailed), Step::none);
  now = rt::Seconds(1);
  EXPECT_EQ(next(startFailed), Step::pulse);
}

TEST_F(PacingTest, IsPatientFromTheBeginningAfterAStartThatWentWell) {
  pulses(5);
  next(running);
  now = rt::Seconds(1000);
  EXPECT_THAT(pulses(2), ElementsAre(1001, 1003));
}

TEST_F(PacingTest, IsPatientFromTheBeginningAfterTheVmWasOff) {
  pulses(5);
  next(off);
  now = rt::Seconds(1000);
  EXPECT_THAT(pulses(1), ElementsAre(1001));
}

TEST_F(PacingTest, TriesAtOnceWhenTheConfigurationChanged) {
  pulses(5);
  EXPECT_EQ(next(startFailed), Step::none);
  pacing.hurry();
  EXPECT_EQ(next(startFailed), Step::pulse);
  EXPECT_EQ(next(startFailed), Step::none);
  EXPECT_EQ(pacing.wakeUp(), now + Pacing::firstDelay);
}

TEST_F(PacingTest, TriesAStartThatWasRefusedAgainMoreAndMorePatiently) {
  std::vector<double> times;
  while (times.size() < 9) {
    if (next(wanted) == Step::switchOn) {
      times.push_back(now.value());
      pacing.refused(now);
    } else {
      now = pacing.wakeUp();
    }
  }
  EXPECT_THAT(times, ElementsAre(0, 1, 3, 7, 15, 31, 63, 123, 183));
}

TEST_F(PacingTest, TriesAStartThatWasRefusedAtOnceWhenARestartIsAskedFor) {
  next(wanted);
  pacing.refused(now);
  EXPECT_EQ(next(wanted), Step::none);
  EXPECT_EQ(next(with(wanted, 1)), Step::switchOn);
}

TEST_F(PacingTest, ForgetsThatAStartWasRefusedOnceTheVmIsNotWanted) {
  for (int i = 0; i < 5; ++i) pacing.refused(now);
  EXPECT_EQ(next(off), Step::none);
  EXPECT_EQ(pacing.wakeUp(), rt::Seconds::infinity());
  EXPECT_EQ(next(wanted), Step::switchOn);
  pacing.refused(now);
  EXPECT_EQ(pacing.wakeUp(), now + Pacing::firstDelay);
}

TEST_F(PacingTest, TriesAStartAgainThatWasInVainMoreAndMorePatientlyUntilTheGuestRuns) {
  VmFacts inVain = running;
  inVain.process = false;
  inVain.inVain = true;
  VmFacts starting = running;
  starting.starting = true;
  std::vector<double> times;
  while (times.size() < 4) {
    if (next(inVain) == Step::pulse) {
      times.push_back(now.value());
      EXPECT_EQ(next(starting), Step::none);
      EXPECT_EQ(pacing.wakeUp(), rt::Seconds::infinity());
    } else {
      now = pacing.wakeUp();
    }
  }
  EXPECT_THAT(times, ElementsAre(1, 3, 7, 15));
  next(running);
  next(inVain);
  EXPECT_EQ(pacing.wakeUp(), now + Pacing::firstDelay);
}

TEST_F(PacingTest, AsksForADeferredStartUntilItIsMade) {
  next(startFailed);
  now = rt::Seconds(1);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(next(startFailed), Step::pulse);
    pacing.deferred();
  }
  EXPECT_EQ(next(startFailed), Step::pulse);
  EXPECT_EQ(next(startFailed), Step::none);
  EXPECT_EQ(pacing.wakeUp(), rt::Seconds(3)) << "to be deferred is no failure";
}

TEST_F(PacingTest, HasNothingToDoAgainWhenNothingFailed) {
  pacing.again();
  EXPECT_EQ(pacing.wakeUp(), rt::Seconds::infinity());
}

TEST_F(PacingTest, HasNothingToHurryWhenNothingFailed) {
  pacing.hurry();
  EXPECT_EQ(next(running), Step::none);
  EXPECT_EQ(pacing.wakeUp(), rt::Seconds::infinity());
}

// A VM that is started again whenever its guest has ended, which it does after `life`: how long
// each start waits.
class PolicyPacingTest : public PacingTest {
 protected:
  double waits(rt::Seconds life) {
    EXPECT_EQ(next(running), Step::none);
    now = now + life;
    const rt::Seconds ended = now;
    while (next(endedByPolicy) != Step::pulse) now = pacing.wakeUp();
    return (now - ended).value();
  }
  static constexpr VmFacts endedByPolicy{
      .wanted = true, .switchedOn = true, .statusEnabled = true, .again = true};
};

TEST_F(PolicyPacingTest, StartsAGuestThatEndsAgainMoreAndMorePatiently) {
  std::vector<double> all;
  for (int i = 0; i < 11; ++i) all.push_back(waits(rt::Seconds(3)));
  EXPECT_THAT(all, ElementsAre(1, 2, 4, 8, 16, 32, 64, 128, 256, 300, 300));
}

TEST_F(PolicyPacingTest, IsPatientFromTheBeginningAfterALongRun) {
  for (int i = 0; i < 4; ++i) waits(rt::Seconds(599));
  EXPECT_EQ(waits(rt::Seconds(600)), 1);
  EXPECT_EQ(waits(rt::Seconds(3)), 2);
}

TEST_F(PolicyPacingTest, IsPatientFromTheBeginningOnceItWasRestarted) {
  for (int i = 0; i < 4; ++i) waits(rt::Seconds(3));
  EXPECT_EQ(next(with(endedByPolicy, 1)), Step::switchOff);
  EXPECT_EQ(next(with(wanted, 1)), Step::switchOn);
  EXPECT_EQ(waits(rt::Seconds(3)), 1);
}

TEST_F(PolicyPacingTest, CountsNoTimeInWhichItsGuestWasNotLetRun) {
  waits(rt::Seconds(3));
  VmFacts starting = running;
  starting.starting = true;
  EXPECT_EQ(next(starting), Step::none);
  now = now + rt::Seconds(700);
  EXPECT_EQ(waits(rt::Seconds(3)), 2);
}

TEST_F(PolicyPacingTest, LeavesAGuestEndedWhoseVmIsNotToBeStartedAgainAnyMore) {
  EXPECT_EQ(next(endedByPolicy), Step::none);
  VmFacts facts = endedByPolicy;
  facts.again = false;
  EXPECT_EQ(next(facts), Step::none);
  EXPECT_EQ(pacing.wakeUp(), rt::Seconds::infinity());
}

TEST_F(PolicyPacingTest, StartsAtOnceWhenTheConfigurationChanged) {
  for (int i = 0; i < 4; ++i) waits(rt::Seconds(3));
  EXPECT_EQ(next(endedByPolicy), Step::none);
  pacing.hurry();
  EXPECT_EQ(next(endedByPolicy), Step::pulse);
  EXPECT_EQ(waits(rt::Seconds(3)), 1);
}

TEST_F(PolicyPacingTest, SwitchesOffWhatIsNotWantedWhileItWaits) {
  EXPECT_EQ(next(endedByPolicy), Step::none);
  VmFacts facts = endedByPolicy;
  facts.wanted = false;
  EXPECT_EQ(next(facts), Step::switchOff);
}

TEST_F(PacingTest, DoesNotPulseWhileAProcessIsThere) {
  VmFacts facts = startFailed;
  facts.process = true;
  EXPECT_EQ(next(facts), Step::none);
  EXPECT_EQ(pacing.wakeUp(), rt::Seconds::infinity());
}

TEST_F(PacingTest, RestartsByOffWaitOn) {
  EXPECT_EQ(next(with(running, 1)), Step::switchOff);
  VmFacts ending = with(wanted, 1);
  ending.process = true;
  EXPECT_EQ(next(ending), Step::none);
  EXPECT_EQ(pacing.restartsDone(), 0U);
  EXPECT_EQ(next(with(wanted, 1)), Step::switchOn);
  EXPECT_EQ(pacing.restartsDone(), 1U);
  EXPECT_EQ(next(with(running, 1)), Step::none) << "once is enough";
}

TEST_F(PacingTest, RestartsOnceForRequestsThatCameTogether) {
  EXPECT_EQ(next(with(running, 3)), Step::switchOff);
  EXPECT_EQ(next(with(wanted, 4)), Step::switchOn);
  EXPECT_EQ(next(with(running, 4)), Step::none);
}

TEST_F(PacingTest, RestartsAVmWhoseGuestHasEnded) {
  VmFacts ended = with(running, 1);
  ended.process = false;
  EXPECT_EQ(next(ended), Step::switchOff);
}

TEST_F(PacingTest, CountsARestartOfAVmThatIsOffAsDone) {
  EXPECT_EQ(next(with(off, 5)), Step::none);
  EXPECT_EQ(pacing.restartsDone(), 5U);
  EXPECT_EQ(next(with(wanted, 5)), Step::switchOn);
  EXPECT_EQ(next(with(running, 5)), Step::none);
}

TEST_F(PacingTest, KnowsWhatAnEarlierDaemonHadDone) {
  pacing = Pacing(7);
  EXPECT_EQ(next(with(running, 7)), Step::none);
  EXPECT_EQ(next(with(running, 8)), Step::switchOff);
}

// Orderly stops.

class OrderlyStop : public PacingTest {
 protected:
  OrderlyStop() { pacing = Pacing(0, rt::Seconds(20)); }

  static VmFacts unwanted(VmFacts facts) {
    facts.wanted = false;
    return facts;
  }
  static VmFacts ended(VmFacts facts) {
    facts.process = false;
    return facts;
  }
};

constexpr VmFacts takingUp{
    .switchedOn = true, .statusEnabled = true, .process = true, .takingUp = true};

TEST_F(OrderlyStop, AsksTheGuestAndSwitchesOffWhenItHasGone) {
  EXPECT_EQ(next(unwanted(running)), Step::ask);
  EXPECT_EQ(next(unwanted(running)), Step::none);
  EXPECT_EQ(pacing.wakeUp(), rt::Seconds(20));
  EXPECT_EQ(next(ended(unwanted(running))), Step::switchOff);
  EXPECT_EQ(pacing.wakeUp(), rt::Seconds::infinity());
}

TEST_F(OrderlyStop, EndsWhenTimeIsUp) {
  next(unwanted(running));
  now = rt::Seconds(19.9);
  EXPECT_EQ(next(unwanted(running)), Step::none);
  now = rt::Seconds(20);
  EXPECT_EQ(next(unwanted(running)), Step::switchOff);
}

TEST_F(OrderlyStop, EndsAtOnceWhenThereIsNobodyToAsk) {
  EXPECT_EQ(next(unwanted(running)), Step::ask);
  pacing.askFailed();
  EXPECT_EQ(next(unwanted(running)), Step::switchOff);
}

TEST_F(OrderlyStop, AsksNobodyWhenTheGuestHasEndedAlready) {
  EXPECT_EQ(next(ended(unwanted(running))), Step::switchOff);
}

TEST_F(OrderlyStop, IsGoneThroughWithWhenTheVmIsWantedAgain) {
  next(unwanted(running));
  EXPECT_EQ(next(running), Step::none) << "the guest was told to end";
  EXPECT_EQ(next(ended(running)), Step::switchOff);
  EXPECT_EQ(next(wanted), Step::switchOn);
  EXPECT_EQ(next(running), Step::none);
}

TEST_F(OrderlyStop, IsARestartsToo) {
  EXPECT_EQ(next(with(running, 1)), Step::ask);
  EXPECT_EQ(next(with(ended(running), 1)), Step::switchOff);
  EXPECT_EQ(next(with(wanted, 1)), Step::switchOn);
  EXPECT_EQ(next(with(running, 1)), Step::none);
}

// The guest was told to end, so it is not the one that goes on.
TEST_F(OrderlyStop, IsNoEndOfARestartThatSparesGuestsWhileTheGuestEnds) {
  next(unwanted(running));
  VmFacts facts = with(running, 1);
  facts.sparesGuest = true;
  EXPECT_EQ(next(facts), Step::none);
  EXPECT_EQ(pacing.restartsDone(), 0U);
  EXPECT_EQ(next(ended(facts)), Step::switchOff);
  facts.switchedOn = false;
  EXPECT_EQ(next(ended(facts)), Step::switchOn);
  EXPECT_EQ(pacing.restartsDone(), 1U);
}

TEST_F(OrderlyStop, IsAskedForOnceEachTime) {
  next(unwanted(running));
  next(ended(unwanted(running)));
  next(wanted);
  EXPECT_EQ(next(unwanted(running)), Step::ask);
}

// Its shim would hear that of the one that has the guest: that this ends, and start another.
TEST_F(OrderlyStop, AsksAGuestOnceItIsTakenUp) {
  EXPECT_EQ(next(takingUp), Step::none);
  EXPECT_TRUE(pacing.isLeaving());
  now = rt::Seconds(5);
  EXPECT_EQ(next(unwanted(running)), Step::ask);
  now = rt::Seconds(24.9);
  EXPECT_EQ(next(unwanted(running)), Step::none) << "it has its time from then on";
  now = rt::Seconds(25);
  EXPECT_EQ(next(unwanted(running)), Step::switchOff);
}

TEST_F(OrderlyStop, WaitsForNoGuestToBeTakenUpForEver) {
  next(takingUp);
  EXPECT_EQ(pacing.wakeUp(), rt::Seconds(20));
  now = rt::Seconds(20);
  EXPECT_EQ(next(takingUp), Step::switchOff);
}

TEST_F(PacingTest, CarriesOutTheRestartOfAGuestThatAnEarlierDaemonLeft) {
  VmFacts adoptable = with(wanted, 1);
  adoptable.adoptable = true;
  EXPECT_EQ(next(adoptable), Step::switchOn);
  EXPECT_EQ(pacing.restartsDone(), 0U);
  EXPECT_EQ(next(with(running, 1)), Step::switchOff);
}

// Stops that have a time of their own.

class PatientPacingTest : public testing::Test {
 protected:
  Step next(const VmFacts& facts) { return pacing.next(facts, now); }
  static VmFacts stopped(uint64_t number, double within) {
    VmFacts facts = running;
    facts.wanted = false;
    facts.stop = number;
    facts.within = rt::Seconds(within);
    return facts;
  }

  rt::Seconds now{0};
  Pacing pacing{0, rt::Seconds(23)};
};

TEST_F(PatientPacingTest, GivesAGuestTheTimeThatAnOperatorGaveIt) {
  ASSERT_EQ(next(running), Step::none);
  const VmFacts facts = stopped(1, 300);
  EXPECT_EQ(next(facts), Step::ask);
  EXPECT_EQ(pacing.ownTime(facts), rt::Seconds(300));
  EXPECT_EQ(pacing.stopAt(), rt::Seconds(308));
  now = rt::Seconds(307);
  EXPECT_EQ(next(facts), Step::none);
  now = rt::Seconds(308);
  EXPECT_EQ(next(facts), Step::switchOff);
}

TEST_F(PatientPacingTest, AsksOnceMoreWhenAnOperatorCannotWait) {
  ASSERT_EQ(next(running), Step::none);
  VmFacts facts = running;
  facts.wanted = false;
  EXPECT_EQ(next(facts), Step::ask);
  EXPECT_EQ(pacing.ownTime(facts), std::nullopt);
  EXPECT_EQ(next(stopped(1, 0)), Step::ask);
  EXPECT_EQ(pacing.stopAt(), rt::Seconds(8));
  EXPECT_EQ(next(stopped(1, 0)), Step::none) << "once";
  EXPECT_EQ(next(stopped(2, 60)), Step::none) << "it gets no more time than it has";
  EXPECT_EQ(pacing.stopAt(), rt::Seconds(8));
}

TEST_F(PatientPacingTest, ForgetsTheTimeOfAStopThatIsOver) {
  ASSERT_EQ(next(running), Step::none);
  EXPECT_EQ(next(stopped(1, 0)), Step::ask);
  VmFacts facts = stopped(1, 0);
  facts.process = false;
  EXPECT_EQ(next(facts), Step::switchOff);
  facts.switchedOn = facts.statusEnabled = false;
  EXPECT_EQ(next(facts), Step::none);
  facts = running;
  facts.stop = 1;
  facts.within = rt::Seconds(0);
  EXPECT_EQ(next(facts), Step::none);
  facts.wanted = false;
  EXPECT_EQ(next(facts), Step::ask);
  EXPECT_EQ(pacing.ownTime(facts), std::nullopt) << "another stop, which says nothing of time";
  EXPECT_EQ(pacing.stopAt(), rt::Seconds(23));
}

TEST_F(PatientPacingTest, TakesNoTimeOfBeforeThisDaemonForAGuestThatRuns) {
  VmFacts facts = running;
  facts.stop = 1;
  facts.within = rt::Seconds(0);
  ASSERT_EQ(next(facts), Step::none);
  facts.wanted = false;
  EXPECT_EQ(next(facts), Step::ask);
  EXPECT_EQ(pacing.ownTime(facts), std::nullopt);
}

TEST_F(PatientPacingTest, RestartsWithinTheTimeThatWasGiven) {
  ASSERT_EQ(next(running), Step::none);
  VmFacts facts = with(running, 1);
  facts.within = rt::Seconds(0);
  EXPECT_EQ(next(facts), Step::ask);
  EXPECT_EQ(pacing.ownTime(facts), rt::Seconds(0));
  EXPECT_EQ(pacing.stopAt(), rt::Seconds(8));
}

TEST_F(PatientPacingTest, AsksNobodyWhereThereAreNoShims) {
  Pacing alone{0};
  ASSERT_EQ(alone.next(running, now), Step::none);
  EXPECT_EQ(alone.next(stopped(1, 300), now), Step::switchOff);
}

}  // namespace
}  // namespace host
