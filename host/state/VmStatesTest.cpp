#include <gmock/gmock.h>

#include "guest/EventWords.h"
#include "host/state/VmStates.h"
#include "runtime/fakes/ManualClock.h"
#include "runtime/loop/ActivityManager.h"

namespace host {
namespace {

namespace word = guest::event;

class VmStatesTest : public testing::Test {
 protected:
  // A shim tells that now.
  void tell(std::string_view kind, const char* reason = "", uint64_t run = 7,
            const char* vm = "web1") {
    const auto event = rt::make<GuestEvent>(vm);
    event->runIs(run);
    event->nIs(++number);
    event->kindIs(rt::String(std::string(kind)));
    event->reasonIs(reason);
    event->atIs(timeOfDay() * 1000);
    event->upIs(up());
    event->pidIs(4711);
    event->byIs(by);
    states.eventIs(*event);
  }
  uint64_t up() const { return static_cast<uint64_t>(clock->now().value() * 1000); }
  uint64_t timeOfDay() const { return 1'700'000'000 + up() / 1000 + clockStep; }
  void pass(double seconds) {
    clock->advance(rt::Seconds(seconds));
    manager.turn(rt::Seconds(0));
  }
  void runs() {
    states.keeperSays("web1", {.wanted = Wanted::running, .hasProcess = true, .isStarted = true});
    tell(word::started);
    tell(word::resumed);
  }
  const model::VmProcess& shown() const { return *status->vmProcess("web1"); }

  rt::Ptr<rt::fakes::ManualClock> clock = rt::make<rt::fakes::ManualClock>();
  rt::ActivityManager manager{clock};
  uint64_t clockStep = 0;
  rt::String by;        // who has asked the shim
  uint64_t toldAt = 0;  // of the last event
  uint64_t number = 0;
  int catchUps = 0;
  std::string_view toldLate{};              // what its shim has told and the daemon has not read
  std::vector<std::string> happened;        // what was told of
  std::map<std::string, std::string> kept;  // what is to be known after a boot, by VM
  HostStatus::Ptr status = rt::make<HostStatus>();
  VmStates states{
      status,
      {.ofDay = [this] { return timeOfDay() * 1000 + up() % 1000; },
       .sinceBoot = [this] { return up(); }},
      {{"web2", {"stopped", 1'600'000'000}},
       {"web3", {"running", 1'600'000'000}},
       {"web4", {"running", 1'600'000'000, {.starts = 5, .ends = {{"asked", 2}}, .startedRun = 7}}},
       {"web6", {"", 0, {}, endByReboot(1'600'000'000'000)}}},
      {.catchUp =
           [this](const rt::String&) {
             ++catchUps;
             if (const auto kind = std::exchange(toldLate, {}); !kind.empty()) tell(kind);
           },
       .tell =
           [this](const model::Event::Ptr& event) {
             toldAt = event->at();
             happened.push_back(event->kind().str() + " " + event->reason().str() +
                                (event->by().empty() ? "" : " by " + event->by().str()));
           },
       .runs = [this](const rt::String& vm,
                      const GuestRun& run) { kept[vm.str()] = "runs " + std::to_string(run.run); },
       .ended =
           [this](const rt::String& vm, uint64_t run, const End& end) {
             kept[vm.str()] = "ended " + std::to_string(run) + " " + textOf(end.cause).str();
           },
       .gone = [this](const rt::String& vm) { kept.erase(vm.str()); }},
      clock};
};

TEST_F(VmStatesTest, TellOfEachChangeAndEachEndOnce) {
  runs();
  states.problemIs("web1", "no card", model::ProblemSource::card);
  tell(word::shutDown, "guest-shutdown");
  tell(word::end);
  states.keeperSays("web1", {.wanted = Wanted::running, .isStarted = true});
  EXPECT_THAT(happened, testing::ElementsAre("state starting", "state running",
                                             "end guest-shutdown by guest"))
      << "that it is stopped, its end has said";
  states.keeperSays("web1", {});
  states.keeperSays("web1", {.wanted = Wanted::running});
  EXPECT_EQ(happened.back(), "state starting");
}

TEST_F(VmStatesTest, ShowACardWithoutALineWithItsTime) {
  runs();
  states.cardIs("web1", {.card = "nic00", .interface = "Ethernet1", .isGone = false, .since = 77});
  states.problemIs("web1", "nic00: Ethernet1 has no carrier", model::ProblemSource::line);
  EXPECT_EQ(shown().actual(), "running");
  EXPECT_EQ(shown().reason(), "no-carrier");
  EXPECT_EQ(shown().whySubject(), "nic00");
  EXPECT_EQ(shown().whySince(), 77U);
  states.cardIs("web1", {.card = "nic00", .interface = "Ethernet1", .isGone = false, .since = 78});
  EXPECT_EQ(shown().whySince(), 78U) << "it was back in between";
  states.problemIs("web1", "", {});
  EXPECT_EQ(shown().whySubject(), "");
  EXPECT_EQ(shown().whySince(), 0U);
}

TEST_F(VmStatesTest, TellNothingOfWhatWasSoBefore) {
  states.keeperSays("web2", {});
  EXPECT_TRUE(happened.empty());
}

TEST_F(VmStatesTest, TellWhichRunGoesOnHowItEndedAndThatItsVmIsGone) {
  runs();
  EXPECT_EQ(kept["web1"], "runs 7");
  tell(word::shutDown, "guest-shutdown");
  tell(word::end);
  EXPECT_EQ(kept["web1"], "ended 7 guest-shutdown");
  states.vmDel("web1");
  EXPECT_TRUE(kept.empty());
}

// A policy goes by the run that ended just now, not by one before the boot.
TEST_F(VmStatesTest, ShowHowTheRunBeforeTheBootEndedAndTellItAgainToNobody) {
  states.keeperSays("web6", {.wanted = Wanted::running});
  EXPECT_EQ(status->vmProcess("web6")->endCause(), "host-reboot");
  EXPECT_EQ(status->vmProcess("web6")->endBy(), "host");
  EXPECT_EQ(status->vmProcess("web6")->endAt(), 1'600'000'000U);
  EXPECT_EQ(states.lastEnd("web6"), std::nullopt);
  EXPECT_THAT(happened, testing::ElementsAre("state starting"));
}

TEST_F(VmStatesTest, TellTheMomentOfAChangeInMilliseconds) {
  pass(2.25);
  runs();
  EXPECT_EQ(toldAt, timeOfDay() * 1000 + 250);
  EXPECT_EQ(shown().since(), timeOfDay());
}

TEST_F(VmStatesTest, NameWhoResumedAGuestOnce) {
  runs();
  tell(word::wished, "pause");
  tell(word::paused);
  by = "op2";
  tell(word::wished, "resume");
  by = "";
  tell(word::resumed);
  EXPECT_EQ(happened.back(), "state running by op2");
  tell(word::suspended);
  tell(word::wokenUp);
  EXPECT_EQ(happened.back(), "state running");
}

TEST_F(VmStatesTest, TellNothingThatTheRowOfAVmHasSaid) {
  states.keeperSays("web5", {});
  EXPECT_TRUE(happened.empty()) << "it was added, and is off";
  states.keeperSays("web5", {.wanted = Wanted::running});
  states.keeperSays("web5", {});
  EXPECT_EQ(happened.back(), "state stopped");
  states.keeperSays("web5", {.wanted = Wanted::running});
  happened.clear();
  states.keeperSays("web5", {.wanted = Wanted::gone});
  EXPECT_TRUE(happened.empty()) << "it was removed";
}

TEST_F(VmStatesTest, NameWhoAskedForTheEndOfAGuestWhoseShimStoodStillAndWasKilled) {
  runs();
  states.askedBy("web1", "op1");
  states.keeperSays("web1", {.hasProcess = true, .isEnding = true, .isStarted = true});
  states.overdueIs("web1");
  states.keeperSays("web1", {});
  EXPECT_EQ(shown().endCause(), "powered-off");
  EXPECT_EQ(shown().endBy(), "op1");
  EXPECT_EQ(shown().endText(), "the guest was switched off by op1, and its shim did not answer");
  EXPECT_FALSE(shown().endFailed());
  runs();
  tell(word::started, "", 8);
  states.keeperSays("web1", {.wanted = Wanted::running, .isStarted = true});
  EXPECT_EQ(shown().endCause(), "shim-lost") << "that was another run";
}

TEST_F(VmStatesTest, NameWhoAskedForAnEnd) {
  runs();
  states.askedBy("web1", "op1");
  states.keeperSays("web1", {.hasProcess = true, .isEnding = true, .isStarted = true});
  EXPECT_EQ(shown().why(), "it is switched off by op1");
  tell(word::askedToEnd);
  EXPECT_EQ(shown().why(), "it was asked to shut down by op1");
  tell(word::shutDown, "guest-shutdown");
  tell(word::end);
  states.keeperSays("web1", {});
  EXPECT_THAT(shown().endText().str(), testing::HasSubstr("asked to shut down by op1"));
  EXPECT_THAT(happened, testing::Contains("state stopping by op1"));
  EXPECT_EQ(happened.back(), "end asked by op1");
}

TEST_F(VmStatesTest, TakeNothingToldLateOfARemovedVmForTheNextOfItsName) {
  runs();
  states.vmDel("web1");
  tell(word::end);
  states.keeperSays("web1", {.wanted = Wanted::stopped});
  EXPECT_EQ(shown().endCause(), "");
}

TEST_F(VmStatesTest, ShowAVmFromItsKeepersFirstWordOn) {
  tell(word::started);
  EXPECT_EQ(status->vmProcess("web1"), nullptr);
  states.keeperSays("web1", {.wanted = Wanted::running, .hasProcess = true, .isStarted = true});
  EXPECT_EQ(shown().wanted(), "running");
  EXPECT_EQ(shown().actual(), "starting");
  EXPECT_EQ(shown().severity(), "busy");
  EXPECT_EQ(shown().qemuPid(), 4711);
  tell(word::resumed);
  EXPECT_EQ(shown().actual(), "running");
}

TEST_F(VmStatesTest, KeepSinceWhenItIsSoUntilItIsNot) {
  runs();
  const uint64_t since = timeOfDay();
  EXPECT_EQ(shown().since(), since);
  pass(60);
  states.problemIs("web1", "no card", model::ProblemSource::card);
  EXPECT_EQ(shown().severity(), "bad");
  EXPECT_EQ(shown().since(), since) << "another reason, the same state";
  tell(word::paused);
  EXPECT_EQ(shown().since(), since + 60);
}

TEST_F(VmStatesTest, KeepAnEarlierDaemonsTimeOfWhatIsSoStill) {
  states.keeperSays("web2", {});
  EXPECT_EQ(status->vmProcess("web2")->since(), 1'600'000'000U);
  states.keeperSays("web3", {});
  EXPECT_EQ(status->vmProcess("web3")->since(), timeOfDay());
}

TEST_F(VmStatesTest, CountStartsAndEndsOncePerRun) {
  runs();
  EXPECT_EQ(shown().starts(), 1U);
  EXPECT_EQ(shown().ends(), "");
  tell(word::shutDown, "guest-shutdown");
  tell(word::end);
  states.keeperSays("web1", {.wanted = Wanted::running, .isStarted = true});
  states.keeperSays("web1", {.wanted = Wanted::running, .hasProcess = true, .isStarted = true});
  tell(word::started, "", 8);
  tell(word::end, "", 8);
  states.keeperSays("web1", {});
  EXPECT_EQ(shown().starts(), 2U);
  EXPECT_EQ(shown().ends(), "guest-shutdown:1 unknown:1");
}

TEST_F(VmStatesTest, CountOnFromWhatAnEarlierDaemonHadCounted) {
  // What its shim told that daemon is read anew.
  tell(word::started, "", 7, "web4");
  states.keeperSays("web4", {.wanted = Wanted::running, .hasProcess = true, .isStarted = true});
  const model::VmProcess& shown = *status->vmProcess("web4");
  EXPECT_EQ(shown.starts(), 5U);
  EXPECT_EQ(shown.ends(), "asked:2");
  tell(word::end, "", 7, "web4");
  states.keeperSays("web4", {.wanted = Wanted::running, .isStarted = true});
  EXPECT_EQ(shown.starts(), 5U);
  EXPECT_EQ(shown.ends(), "asked:2 unknown:1");
  EXPECT_EQ(shown.endedRun(), 7U);
}

TEST_F(VmStatesTest, JudgeAnEndOnceTheShimsLastWordIsRead) {
  runs();
  toldLate = word::end;
  states.keeperSays("web1", {.wanted = Wanted::running, .isStarted = true});
  EXPECT_EQ(catchUps, 1);
  EXPECT_EQ(shown().endCause(), "unknown") << "a shim that was killed has none";
  EXPECT_EQ(shown().qemuPid(), 0);
}

TEST_F(VmStatesTest, KnowAShimThatWasKilled) {
  runs();
  states.keeperSays("web1", {.wanted = Wanted::running, .isStarted = true});
  EXPECT_EQ(shown().endCause(), "shim-lost");
  EXPECT_EQ(shown().endAt(), timeOfDay());
  EXPECT_EQ(shown().actual(), "crashed");
  EXPECT_TRUE(shown().endFailed());
}

TEST_F(VmStatesTest, KeepTheLastEndWhileTheNextRunGoes) {
  runs();
  tell(word::shutDown, "guest-shutdown");
  tell(word::end);
  states.keeperSays("web1", {.wanted = Wanted::running, .isStarted = true});
  EXPECT_EQ(shown().actual(), "stopped");
  states.keeperSays("web1", {.wanted = Wanted::running, .hasProcess = true, .isStarted = true});
  tell(word::started, "", 8);
  tell(word::resumed, "", 8);
  EXPECT_EQ(shown().actual(), "running");
  EXPECT_EQ(shown().endCause(), "guest-shutdown");
}

TEST_F(VmStatesTest, SayNothingOfTheLastRunWhereAProcessIsThereAgain) {
  for (const bool isTold : {true, false}) {
    runs();
    tell(word::silent);
    if (isTold) tell(word::end);
    states.keeperSays("web1", {.wanted = Wanted::running, .isStarted = true});
    states.keeperSays("web1", {.wanted = Wanted::running,
                               .hasProcess = true,
                               .isStarted = true,
                               .agentState = "Starting"});
    EXPECT_EQ(shown().actual(), "starting") << isTold;
    EXPECT_EQ(shown().qemuPid(), 0) << isTold;
    pass(20);
    EXPECT_EQ(shown().actual(), "starting") << isTold;
    states.vmDel("web1");
  }
}

TEST_F(VmStatesTest, JudgeNoEndOfAGuestThatWaitsForItsRow) {
  tell(word::started);
  tell(word::resumed);
  states.keeperSays("web1", {.wanted = Wanted::unknown, .mayGoOn = true});
  EXPECT_EQ(shown().endCause(), "");
  states.keeperSays("web1", {.wanted = Wanted::running, .hasProcess = true, .isStarted = true});
  EXPECT_EQ(shown().actual(), "running");
}

TEST_F(VmStatesTest, TakeTheShimsWordForMoreThanAGuess) {
  runs();
  states.keeperSays("web1", {.wanted = Wanted::running, .isStarted = true});
  EXPECT_EQ(shown().endCause(), "shim-lost");
  tell(word::shutDown, "guest-shutdown");
  tell(word::end);
  EXPECT_EQ(shown().endCause(), "guest-shutdown");
}

TEST_F(VmStatesTest, SayThatQemuHangsWhenItsTimeIsUpThoughNothingHappens) {
  runs();
  tell(word::silent);
  EXPECT_EQ(shown().actual(), "running");
  pass(9.9);
  EXPECT_EQ(shown().actual(), "running");
  pass(0.2);
  EXPECT_EQ(shown().actual(), "hung");
  tell(word::answers);
  EXPECT_EQ(shown().actual(), "running");
}

TEST_F(VmStatesTest, SayThatAVmHangsWhoseGuestDoesNotAnswerTheAgent) {
  states.unansweredIs("web1", true);
  EXPECT_EQ(status->vmProcess("web1"), nullptr) << "its keeper has said nothing yet";
  runs();
  states.unansweredIs("web1", true);
  EXPECT_EQ(shown().actual(), "hung");
  EXPECT_EQ(shown().why(), "its shim does not answer");
  states.unansweredIs("web1", false);
  EXPECT_EQ(shown().actual(), "running");
}

TEST_F(VmStatesTest, SayWhenAStartIsTriedAgainAndHowOftenItWas) {
  const auto fails = [&](double in) {
    states.problemIs("web1", "no QEMU", model::ProblemSource::qemu);
    states.keeperSays(
        "web1",
        {.wanted = Wanted::running, .isStarted = true, .tryAt = clock->now() + rt::Seconds(in)});
  };
  fails(1);
  EXPECT_EQ(shown().actual(), "retrying");
  EXPECT_EQ(shown().nextAt(), timeOfDay() + 1);
  EXPECT_EQ(shown().attempt(), 1U);
  pass(1);
  states.keeperSays("web1", {.wanted = Wanted::running, .hasProcess = true, .isStarted = true});
  fails(2);
  EXPECT_EQ(shown().nextAt(), timeOfDay() + 2);
  EXPECT_EQ(shown().attempt(), 2U);
  runs();
  EXPECT_EQ(shown().attempt(), 0U);
}

TEST_F(VmStatesTest, ForgetAVmThatIsGone) {
  runs();
  states.vmDel("web1");
  states.keeperSays("web1", {});
  EXPECT_EQ(shown().endCause(), "") << "it is another VM of that name";
}

}  // namespace
}  // namespace host
