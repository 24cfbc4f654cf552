#include <gmock/gmock.h>

#include "host/state/VmState.h"

namespace host {
namespace {

using model::ProblemSource;
using testing::HasSubstr;

constexpr uint64_t now = 1'000'000;

// A VM that runs as it is wanted.
Situation running() {
  Situation vm;
  vm.wanted = Wanted::running;
  vm.hasProcess = true;
  vm.isStarted = true;
  vm.agentState = "Running";
  vm.run.run = 7;
  vm.run.state = RunState::running;
  vm.nowUp = now;
  return vm;
}

Situation off() {
  Situation vm;
  vm.nowUp = now;
  return vm;
}

// One that is wanted and has no process, as far as is known because it ended so.
Situation endedBy(EndCause cause, bool isFailure) {
  Situation vm = off();
  vm.wanted = Wanted::running;
  vm.isStarted = true;
  vm.end = {.cause = cause, .text = "it ended so", .brief = "so", .isFailure = isFailure};
  return vm;
}

template <class Change>
Situation with(Situation vm, Change change) {
  change(vm);
  return vm;
}

TEST(VmStateActual, IsStoppingBeforeAllElse) {
  const auto vm = with(running(), [](Situation& v) {
    v.isEnding = true;
    v.run.silentUp = 1;
    v.run.state = RunState::paused;
  });
  EXPECT_EQ(actualOf(vm), Actual::stopping);
  EXPECT_EQ(severityOf(vm), "busy");
}

TEST(VmStateActual, IsHungOnceQemuHasNotAnsweredForTenSeconds) {
  auto vm = with(running(), [](Situation& v) { v.run.silentUp = now - 9'999; });
  EXPECT_EQ(actualOf(vm), Actual::running);
  EXPECT_EQ(wakeUpOf(vm), now + 1);
  vm.nowUp = now + 1;
  EXPECT_EQ(actualOf(vm), Actual::hung);
  EXPECT_EQ(wakeUpOf(vm), std::nullopt);
  EXPECT_EQ(reasonOf(vm).text, "its QEMU does not answer");
  EXPECT_EQ(nextOf(vm, "web1").command, "vmctl restart web1 --now");
  EXPECT_EQ(severityOf(vm), "bad");
}

TEST(VmStateReason, OfAStopIsThatItWasAskedAsLongAsItHasTime) {
  auto vm = with(running(), [](Situation& v) {
    v.wanted = Wanted::stopped;
    v.isEnding = true;
    v.askedBy = "ann";
    v.stopUp = now + 15'000;
  });
  EXPECT_EQ(reasonOf(vm).text, "it was asked to shut down by ann");
  vm.stopUp = now;
  EXPECT_EQ(reasonOf(vm).text, "it is switched off by ann");
}

TEST(VmStateReason, IsForTenMinutesThatItWasStartedAgain) {
  auto vm = with(running(), [](Situation& v) {
    v.isStartedAgain = true;
    v.end = {.cause = EndCause::guestPanic, .text = "it ended so", .brief = "so"};
    v.run.startedUp = now - 599'999;
  });
  EXPECT_EQ(reasonOf(vm).text, "it was started again: it ended so");
  EXPECT_EQ(severityOf(vm), "note");
  EXPECT_EQ(wakeUpOf(vm), now + 1);
  vm.nowUp = now + 1;
  EXPECT_EQ(reasonOf(vm).text, "");
  EXPECT_EQ(severityOf(vm), "ok");
  EXPECT_EQ(wakeUpOf(vm), std::nullopt);
}

TEST(VmStateActual, IsHungWhereItsShimDoesNotAnswerTheAgent) {
  const auto vm = with(running(), [](Situation& v) { v.isUnanswered = true; });
  EXPECT_EQ(actualOf(vm), Actual::hung);
  EXPECT_EQ(reasonOf(vm).text, "its shim does not answer");
  const auto both = with(vm, [](Situation& v) { v.run.silentUp = now - 20'000; });
  EXPECT_EQ(reasonOf(both).text, "its QEMU does not answer");
}

TEST(VmStateActual, IsAsItWasWhereNobodyDrivesItsGuest) {
  const auto vm = with(running(), [](Situation& v) {
    v.isOutOfReach = true;
    v.problem = "its shim does not answer";
    v.problemSource = ProblemSource::qemu;
    v.nextUp = now + 1'000;
  });
  EXPECT_EQ(actualOf(vm), Actual::running);
  EXPECT_EQ(severityOf(vm), "bad");
  EXPECT_EQ(reasonOf(vm).word, "out-of-reach");
  EXPECT_EQ(reasonOf(vm).text, "it goes on, and nobody drives it: its shim does not answer");
  EXPECT_EQ(nextOf(vm, "web1").text, "is taken up again");
  EXPECT_EQ(nextOf(vm, "web1").up, now + 1'000);
}

TEST(VmStateActual, IsStoppingForItsOwnReasonWhereNobodyDrivesItsGuest) {
  const auto vm = with(running(), [](Situation& v) {
    v.isOutOfReach = true;
    v.isEnding = true;
    v.wanted = Wanted::gone;
  });
  EXPECT_EQ(reasonOf(vm).word, "removed");
}

TEST(VmStateActual, IsPausedForTheReasonThatQemuGave) {
  const auto full = with(running(), [](Situation& v) {
    v.run.state = RunState::diskError;
    v.run.stateText = "No space left on device";
  });
  EXPECT_EQ(actualOf(full), Actual::paused);
  EXPECT_EQ(reasonOf(full).word, "disk-error");
  EXPECT_THAT(reasonOf(full).text.str(), HasSubstr("No space left on device"));
  EXPECT_EQ(severityOf(full), "bad");
  const auto byHand = with(running(), [](Situation& v) { v.run.state = RunState::paused; });
  EXPECT_EQ(reasonOf(byHand).word, "paused");
  EXPECT_EQ(severityOf(byHand), "note");
}

TEST(VmStateReason, OfAPauseNamesWhoMadeItAndWhatEndsIt) {
  const auto vm = with(running(), [](Situation& v) {
    v.run.state = RunState::paused;
    v.run.pausedBy = "op1";
  });
  EXPECT_EQ(reasonOf(vm).text, "it was paused by op1");
  EXPECT_EQ(reasonOf(vm).brief, "by op1");
  EXPECT_EQ(nextOf(vm, "web1").command, "vmctl resume web1");
  const auto asleep = with(running(), [](Situation& v) { v.run.state = RunState::suspended; });
  EXPECT_EQ(nextOf(asleep, "web1").kind, "none") << "its keyboard wakes it";
}

TEST(VmStateNext, OfAGuestThatStandsStillIsWhatEndsThat) {
  const auto hung = with(running(), [](Situation& v) { v.run.silentUp = 1; });
  EXPECT_EQ(nextOf(hung, "web1").command, "vmctl restart web1 --now");
  const auto panicked = with(running(), [](Situation& v) { v.run.state = RunState::panicked; });
  EXPECT_EQ(nextOf(panicked, "web1").command, "vmctl reset web1");
  EXPECT_EQ(nextOf(endedBy(EndCause::guestShutdown, false), "web1").command, "vmctl start web1");
}

TEST(VmStateActual, IsCrashedWhereTheGuestHasPanickedAndQemuGoesOn) {
  const auto vm = with(running(), [](Situation& v) { v.run.state = RunState::panicked; });
  EXPECT_EQ(actualOf(vm), Actual::crashed);
  EXPECT_EQ(reasonOf(vm).word, "guest-panic");
}

TEST(VmStateActual, IsStartingUntilTheGuestWasLetRun) {
  const auto vm = with(running(), [](Situation& v) {
    v.run.state = RunState::booting;
    v.run.startedUp = 1;
  });
  EXPECT_EQ(actualOf(vm), Actual::starting);
}

TEST(VmStateActual, IsAsTheAgentSaysWhereTheBeginOfALongRunIsInNoFileAnyMore) {
  const auto vm = with(running(), [](Situation& v) { v.run.state = RunState::booting; });
  EXPECT_EQ(actualOf(vm), Actual::running);
}

TEST(VmStateActual, IsAsTheAgentSaysWhereNoShimTells) {
  auto vm = with(running(), [](Situation& v) { v.run = {}; });
  EXPECT_EQ(actualOf(vm), Actual::running);
  vm.agentState = "Starting";
  EXPECT_EQ(actualOf(vm), Actual::starting);
}

TEST(VmStateActual, IsRefusedWhereRowOrImageKeepsItFromAStart) {
  const auto vm = with(off(), [](Situation& v) {
    v.wanted = Wanted::running;
    v.isRefused = true;
    v.problem = "diskImage: '/x' does not exist";
    v.problemSource = ProblemSource::image;
    v.nextUp = now + 4'000;
  });
  EXPECT_EQ(actualOf(vm), Actual::refused);
  EXPECT_EQ(reasonOf(vm).word, "image");
  EXPECT_EQ(reasonOf(vm).text, "diskImage: '/x' does not exist");
  EXPECT_EQ(nextOf(vm, "web1").up, now + 4'000);
  EXPECT_EQ(nextOf(with(vm, [](Situation& v) { v.nextUp.reset(); }), "web1").kind, "wait");
}

TEST(VmStateActual, IsRefusedWhereNobodyKnowsWhatIsWantedForTheRowCannotBeRead) {
  const auto vm = with(off(), [](Situation& v) {
    v.wanted = Wanted::unknown;
    v.isRefused = true;
  });
  EXPECT_EQ(actualOf(vm), Actual::refused);
  const auto row = with(vm, [](Situation& v) { v.problemSource = ProblemSource::config; });
  EXPECT_EQ(nextOf(row, "web1").command, "vmctl edit web1");
}

TEST(VmStateActual, IsRetryingAndSaysWhen) {
  const auto vm =
      with(endedBy(EndCause::startFailed, true), [](Situation& v) { v.nextUp = now + 4'000; });
  EXPECT_EQ(actualOf(vm), Actual::retrying);
  EXPECT_EQ(reasonOf(vm).word, "start-failed");
  EXPECT_EQ(nextOf(vm, "web1").kind, "auto");
  EXPECT_EQ(nextOf(vm, "web1").up, now + 4'000);
}

TEST(VmStateActual, IsCrashedAfterAFailureAndSaysWhatToType) {
  const auto vm = endedBy(EndCause::qemuCrashed, true);
  EXPECT_EQ(actualOf(vm), Actual::crashed);
  EXPECT_EQ(severityOf(vm), "bad");
  EXPECT_EQ(reasonOf(vm).text, "it ended so");
  EXPECT_EQ(nextOf(vm, "web1").command, "vmctl start web1");
}

TEST(VmStateActual, IsStoppedAfterAGuestShutItselfDownAndIsNoFailure) {
  const auto vm = endedBy(EndCause::guestShutdown, false);
  EXPECT_EQ(actualOf(vm), Actual::stopped);
  EXPECT_EQ(severityOf(vm), "note");
  EXPECT_EQ(reasonOf(vm).word, "guest-shutdown");
  EXPECT_EQ(nextOf(vm, "web1").command, "vmctl start web1");
}

TEST(VmStateActual, IsStoppedAndAllIsWellWhereItIsNotWanted) {
  Situation vm = endedBy(EndCause::asked, false);
  vm.wanted = Wanted::stopped;
  EXPECT_EQ(actualOf(vm), Actual::stopped);
  EXPECT_EQ(severityOf(vm), "ok");
  EXPECT_EQ(reasonOf(vm).word, "");
  EXPECT_EQ(nextOf(vm, "web1").kind, "none");
}

TEST(VmStateReason, OfAVmThatIsOffIsWhatIsWrongWithItsRowAndNothingElse) {
  auto vm = with(off(), [](Situation& v) {
    v.problem = "the card cannot be attached";
    v.problemSource = ProblemSource::card;
  });
  EXPECT_EQ(reasonOf(vm).word, "");
  vm.problemSource = ProblemSource::config;
  EXPECT_EQ(reasonOf(vm).word, "config");
}

TEST(VmStateActual, IsStartingForAVmWhoseTurnHasNotCome) {
  const auto vm = with(off(), [](Situation& v) { v.wanted = Wanted::running; });
  EXPECT_EQ(actualOf(vm), Actual::starting);
  EXPECT_EQ(severityOf(vm), "busy");
}

TEST(VmStateReason, OfAStopIsWhoWantedIt) {
  const auto gone = with(running(), [](Situation& v) {
    v.wanted = Wanted::gone;
    v.isEnding = true;
  });
  EXPECT_EQ(reasonOf(gone).word, "removed");
  const auto asked = with(running(), [](Situation& v) {
    v.wanted = Wanted::stopped;
    v.isEnding = true;
    v.run.askedUp = now - 3'000;
    v.stopUp = now + 12'000;
  });
  EXPECT_EQ(reasonOf(asked).text, "it was asked to shut down");
  EXPECT_EQ(nextOf(asked, "web1").up, now + 12'000);
  const auto restart = with(running(), [](Situation& v) { v.isEnding = true; });
  EXPECT_EQ(reasonOf(restart).word, "restart");
}

TEST(VmStateActual, IsStoppingWhereItsShimEndsItWhoeverWantedThat) {
  const auto vm = with(running(), [](Situation& v) {
    v.run.wasQuit = true;
    v.run.toldBy = "signal 15 to its shim, from process 6761 (bash)";
  });
  EXPECT_EQ(actualOf(vm), Actual::stopping);
  EXPECT_EQ(reasonOf(vm).word, "signal");
  EXPECT_THAT(reasonOf(vm).text.str(), HasSubstr("from process 6761 (bash)"));
}

TEST(VmStateReason, OfEachProblemIsInFewWordsToo) {
  for (size_t source = 0; source < model::problemSources.size(); ++source) {
    const auto vm = with(running(), [&](Situation& v) {
      v.problem = std::string(100, 'x');
      v.problemSource = static_cast<ProblemSource>(source);
    });
    EXPECT_FALSE(reasonOf(vm).brief.empty()) << source;
    EXPECT_LE(reasonOf(vm).brief.size(), longestBrief) << source;
  }
}

TEST(VmStateReason, OfARunningVmIsWhatIsWrongThoughItRuns) {
  const auto card = with(running(), [](Situation& v) {
    v.problem = "card nic00 cannot be attached";
    v.problemSource = ProblemSource::card;
  });
  EXPECT_EQ(actualOf(card), Actual::running);
  EXPECT_EQ(severityOf(card), "bad");
  EXPECT_EQ(reasonOf(card).word, "card");
  const auto note = with(running(), [](Situation& v) {
    v.problem = "memory: changed since the guest was started";
    v.problemSource = ProblemSource::restart;
  });
  EXPECT_EQ(severityOf(note), "note");
  EXPECT_EQ(nextOf(note, "web1").command, "vmctl restart web1");
  EXPECT_EQ(reasonOf(note).brief, "changed since its start");
  EXPECT_EQ(reasonOf(running()).word, "");
  EXPECT_EQ(severityOf(running()), "ok");
}

TEST(VmStateReason, OfAnEndThatNobodyToldOfIsWhatTheDaemonKnows) {
  auto vm = with(off(), [](Situation& v) {
    v.wanted = Wanted::running;
    v.isStarted = true;
    v.problem = "QEMU or its shim could not be executed";
    v.problemSource = ProblemSource::qemu;
  });
  EXPECT_EQ(actualOf(vm), Actual::crashed);
  EXPECT_EQ(reasonOf(vm).text, "QEMU or its shim could not be executed");
  vm.end = {.cause = EndCause::unknown, .text = "no reason", .brief = "none", .isFailure = true};
  EXPECT_EQ(reasonOf(vm).text, "QEMU or its shim could not be executed");
  vm.end.cause = EndCause::killed;
  EXPECT_EQ(reasonOf(vm).text, "no reason");
}

// A card without a line.

Situation withoutLine(bool isGone) {
  return with(running(), [=](Situation& v) {
    v.problem = "nic00: Ethernet1 has no carrier";
    v.problemSource = ProblemSource::line;
    v.card = {.card = "nic00", .interface = "Ethernet1", .isGone = isGone, .since = 1'732'186'123};
  });
}

TEST(VmStateReason, OfACardWithoutALineNamesItAndSinceWhen) {
  const auto vm = withoutLine(false);
  EXPECT_EQ(actualOf(vm), Actual::running);
  EXPECT_EQ(severityOf(vm), "bad");
  const Reason reason = reasonOf(vm);
  EXPECT_EQ(reason.word, "no-carrier");
  EXPECT_EQ(reason.text, "nic00: Ethernet1 has no carrier");
  EXPECT_EQ(reason.brief, "nic00: Ethernet1 no line");
  EXPECT_EQ(reason.subject, "nic00");
  EXPECT_EQ(reason.since, 1'732'186'123U);
  EXPECT_EQ(nextOf(vm, "web1").kind, "wait");
  EXPECT_EQ(nextOf(vm, "web1").text, "when the line comes back");
}

TEST(VmStateReason, OfACardWhoseInterfaceIsGoneWaitsForThat) {
  const auto vm = withoutLine(true);
  EXPECT_EQ(reasonOf(vm).word, "gone");
  EXPECT_EQ(reasonOf(vm).brief, "nic00: Ethernet1 gone");
  EXPECT_EQ(nextOf(vm, "web1").text, "when Ethernet1 is there");
}

TEST(VmStateReason, OfALongNameFitsWithWhatIsSaidOfIt) {
  auto vm = withoutLine(false);
  vm.card.interface = "management-vlan";
  EXPECT_EQ(reasonOf(vm).brief, "nic00: managemen… no line");
  vm.card.card = "süden";
  vm.card.interface = "vlan.süd.zwölf";
  EXPECT_THAT(reasonOf(vm).brief.str(), testing::EndsWith("… no line"));
  EXPECT_LE(reasonOf(vm).brief.size(), longestBrief + 2);
}

TEST(VmStateReason, OfAPauseIsNotItsLine) {
  const auto vm = with(withoutLine(false), [](Situation& v) { v.run.state = RunState::paused; });
  EXPECT_EQ(reasonOf(vm).word, "paused");
}

}  // namespace
}  // namespace host
