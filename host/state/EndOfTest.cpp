#include <gmock/gmock.h>

#include <csignal>
#include <set>

#include "guest/EventWords.h"
#include "host/state/EndOf.h"
#include "model/EndCounts.h"

namespace host {
namespace {

namespace word = guest::event;
using testing::HasSubstr;

struct Told {
  std::string_view kind;
  std::string reason{};
  std::string text{};
  int32_t exit = 0;
  int32_t signal = 0;
  uint64_t after = 1'000;  // ms since the event before
};

// What is known of a run whose shim told this.
GuestRun runOf(const std::vector<Told>& told) {
  GuestRun run;
  uint64_t up = 100'000;
  uint64_t number = 0;
  for (const Told& each : told) {
    const auto event = rt::make<GuestEvent>("web1");
    up += each.after;
    event->runIs(7);
    event->nIs(++number);
    event->upIs(up);
    event->atIs(1'700'000'000'000 + up);
    event->kindIs(rt::String(std::string(each.kind)));
    event->reasonIs(rt::String(each.reason));
    event->textIs(rt::String(each.text));
    event->exitIs(each.exit);
    event->signalIs(each.signal);
    take(run, *event);
  }
  return run;
}

const Told started{word::started};
const Told resumed{word::resumed};
const Told asked{word::askedToEnd};
const Told ended{word::end};
Told shutDown(const std::string& reason) { return {word::shutDown, reason}; }
Told endedBy(int32_t signal) { return {word::end, {}, {}, 0, signal}; }
Told endedWith(int32_t status, const std::string& text = {}) {
  return {word::end, {}, text, status, 0};
}

struct Case {
  std::string name;
  std::vector<Told> told;
  EndKnowledge known;
  std::string cause;
  std::string text;
  std::string by;
  bool isFailure = false;
};

class AnEnd : public testing::TestWithParam<Case> {};

TEST_P(AnEnd, HasItsCauseAndItsAuthor) {
  const Case& expected = GetParam();
  const End end = endOf(runOf(expected.told), expected.known);
  EXPECT_EQ(textOf(end.cause), expected.cause);
  EXPECT_EQ(end.text, rt::String(expected.text));
  EXPECT_EQ(end.by, rt::String(expected.by));
  EXPECT_EQ(end.isFailure, expected.isFailure);
  EXPECT_FALSE(end.brief.empty());
  EXPECT_LE(end.brief.str().size(), longestBrief) << end.brief;
}

const std::vector<Case> cases{
    {"GuestPowersOff",
     {started, resumed, shutDown("guest-shutdown"), ended},
     {},
     "guest-shutdown",
     "the guest shut itself down, after 3 s",
     "guest"},
    {"OperatorAsks",
     {started, resumed, asked, shutDown("guest-shutdown"), ended},
     {},
     "asked",
     "the guest was asked to shut down, and did in 2 s",
     "operator"},
    {"OperatorAsksADeafGuest",
     {started,
      resumed,
      asked,
      {word::quit, {}, {}, 0, 0, 15'000},
      shutDown("host-qmp-quit"),
      ended},
     {},
     "asked-forced",
     "the guest was asked to shut down, did not for 17 s, and was switched off",
     "operator"},
    {"OperatorAsksADeafGuestOfADeafQemu",
     {started, resumed, asked, {word::quit}, {word::terminated}, {word::killed}, endedBy(SIGKILL)},
     {},
     "asked-forced",
     "the guest was asked to shut down, did not for 4 s, and was switched off",
     "operator"},
    {"OperatorSwitchesItOff",
     {started,
      resumed,
      {word::toldToEnd, "daemon"},
      {word::quit},
      shutDown("host-qmp-quit"),
      ended},
     {},
     "powered-off",
     "the guest was switched off, after 5 s",
     "operator"},
    {"OperatorSwitchesOffWhatHasNotGotSoFar",
     {started, {word::toldToEnd, "daemon"}, {word::terminated}, endedBy(SIGTERM)},
     {},
     "powered-off",
     "the guest was switched off, after 3 s",
     "operator"},
    {"StrangerTellsTheShim",
     {started,
      resumed,
      {word::toldToEnd, "stranger", "signal 15 to its shim, from process 6761 (bash)"},
      {word::quit},
      shutDown("host-qmp-quit"),
      ended},
     {},
     "signal",
     "the guest was ended by signal 15 to its shim, from process 6761 (bash)",
     "stranger",
     true},
    {"StrangerTellsQemu",
     {started, resumed, shutDown("host-signal"),
      endedWith(0, "terminating on signal 15 from pid 6761 (bash)")},
     {},
     "signal",
     "QEMU ended: terminating on signal 15 from pid 6761 (bash)",
     "stranger",
     true},
    {"StrangerTellsQemuToQuit",
     {started, resumed, shutDown("host-qmp-quit"), ended},
     {},
     "quit",
     "somebody told its QEMU to quit, over its monitor",
     "stranger",
     true},
    {"StrangerKillsQemu",
     {started, resumed, endedBy(SIGKILL)},
     {},
     "killed",
     "QEMU was killed by signal 9; who sent it cannot be known",
     "unknown",
     true},
    {"KernelKillsItAtItsLimit",
     {started,
      resumed,
      {word::end, "memory-limit", "ended by the memory limit of 358 MiB", 0, SIGKILL}},
     {},
     "memory-limit",
     "ended by the memory limit of 358 MiB",
     "kernel",
     true},
    {"QemuDoesNotStart",
     {started, endedWith(1, "Could not open '/images/web1.img'")},
     {},
     "start-failed",
     "QEMU did not start: Could not open '/images/web1.img'",
     "QEMU",
     true},
    {"QemuGivesUp",
     {started, resumed, endedWith(1, "out of ideas")},
     {},
     "qemu-failed",
     "QEMU gave up: out of ideas",
     "QEMU",
     true},
    {"QemuIsNeverReady",
     {started, {word::killed, {}, "QEMU was not ready within 30 s"}, endedBy(SIGKILL)},
     {},
     "qemu-failed",
     "QEMU was not ready within 30 s",
     "QEMU",
     true},
    {"QemuCrashes",
     {started, resumed, endedBy(SIGSEGV)},
     {},
     "qemu-crashed",
     "QEMU crashed with signal 11",
     "QEMU",
     true},
    {"ShimIsKilled",
     {started, resumed},
     {},
     "shim-lost",
     "its shim was killed, and QEMU ended with it",
     "unknown",
     true},
    {"GuestPanics",
     {started, resumed, {word::panicked, "poweroff"}, shutDown("guest-panic"), ended},
     {},
     "guest-panic",
     "the guest panicked, after 4 s",
     "guest",
     true},
    {"GuestShutsDownThatHadPanickedAndWasReset",
     {started, resumed, {word::panicked, "run"}, {word::reset}, shutDown("guest-shutdown"), ended},
     {},
     "guest-shutdown",
     "the guest shut itself down, after 5 s",
     "guest"},
    {"GuestPanicsAndQemuFails",
     {started, resumed, {word::panicked, "exit-failure"}, endedWith(1)},
     {},
     "guest-panic",
     "the guest panicked, after 3 s",
     "guest",
     true},
    {"GuestForgetsItsWatchdog",
     {started, resumed, {word::watchdog, "poweroff"}, ended},
     {},
     "watchdog",
     "the guest did not feed its watchdog, which switched it off",
     "guest",
     true},
    {"GuestResetsItself",
     {started, resumed, shutDown("guest-reset"), ended},
     {},
     "guest-reset",
     "the guest reset itself, which ends it, after 3 s",
     "guest"},
    {"NobodyTellsAReason",
     {started, resumed, ended},
     {},
     "unknown",
     "QEMU ended with status 0 and told no reason",
     "unknown",
     true},
};

INSTANTIATE_TEST_SUITE_P(When, AnEnd, testing::ValuesIn(cases),
                         [](const auto& info) { return info.param.name; });

TEST(EndOf, IsNoneAsLongAsThereIsAProcess) {
  EXPECT_EQ(endOf(runOf({started, resumed}), {.hasProcess = true}).cause, EndCause::none);
  EXPECT_EQ(endOf(runOf({started, resumed, ended}), {.hasProcess = true}).cause, EndCause::unknown)
      << "its shim lives a moment longer";
}

TEST(EndOf, IsNoneOfARunThatNobodyToldOf) {
  EXPECT_EQ(endOf(GuestRun{}, {}).cause, EndCause::none);
}

TEST(EndOf, KeepsWhenAndHowItWas) {
  const End end = endOf(runOf({started, resumed, endedBy(SIGSEGV)}), {});
  EXPECT_EQ(end.at, 1'700'000'000'000U + 103'000U);
  EXPECT_EQ(end.signal, SIGSEGV);
}

TEST(EndOf, HasAWordOfItsOwnForEachCause) {
  std::set<rt::String> words;
  for (size_t cause = 0; cause <= static_cast<size_t>(EndCause::unknown); ++cause)
    words.insert(textOf(static_cast<EndCause>(cause)));
  EXPECT_EQ(words.size(), static_cast<size_t>(EndCause::unknown) + 1);
}

TEST(EndOf, HasTheWordsThatOthersCountBy) {
  for (size_t cause = 1; cause <= static_cast<size_t>(EndCause::unknown); ++cause)
    EXPECT_EQ(textOf(static_cast<EndCause>(cause)), rt::String(model::endCauses.at(cause - 1)));
  EXPECT_EQ(model::endCauses.size(), static_cast<size_t>(EndCause::unknown));
}

TEST(GuestRun, BeginsAnewWithTheNextRun) {
  GuestRun run = runOf({started, resumed, asked, ended});
  const auto next = rt::make<GuestEvent>("web1");
  next->runIs(8);
  next->upIs(200'000);
  next->kindIs("started");
  take(run, *next);
  EXPECT_FALSE(run.hasEnded());
  EXPECT_FALSE(run.hasRun());
  EXPECT_EQ(run.askedUp, 0U);
  EXPECT_EQ(run.startedUp, 200'000U);
}

TEST(GuestRun, KnowsWhatItIsPausedFor) {
  EXPECT_EQ(runOf({started, resumed, {word::paused}}).state, RunState::paused);
  const GuestRun full =
      runOf({started, resumed, {word::diskError, "stop", "No space left"}, {word::paused}});
  EXPECT_EQ(full.state, RunState::diskError);
  EXPECT_EQ(full.stateText, "No space left");
  EXPECT_EQ(runOf({started, resumed, {word::diskError, "report", "bad block"}}).state,
            RunState::running);
  EXPECT_EQ(runOf({started, resumed, {word::watchdog, "pause"}, {word::paused}}).state,
            RunState::watchdog);
  EXPECT_EQ(runOf({started, resumed, {word::panicked, "pause"}, {word::paused}}).state,
            RunState::panicked);
  EXPECT_EQ(runOf({started, resumed, {word::suspended}, {word::wokenUp}}).state, RunState::running);
}

TEST(GuestRun, ThatIsNotLetRunYetIsNotPaused) {
  EXPECT_EQ(runOf({started, {word::paused}}).state, RunState::booting);
}

TEST(GuestRun, CountsResets) {
  const GuestRun run = runOf({started, resumed, {word::reset, "guest-reset"}, {word::reset}});
  EXPECT_EQ(run.resets, 2U);
}

TEST(GuestRun, KnowsSinceWhenQemuIsSilent) {
  EXPECT_EQ(runOf({started, {word::silent}, {word::silent}}).silentUp, 102'000U);
  EXPECT_EQ(runOf({started, {word::silent}, {word::answers}}).silentUp, 0U);
}

TEST(EndOf, NamesTheOperatorWhoAskedTheShimForIt) {
  const auto by = [](std::string_view what, const char* who) {
    const auto event = rt::make<GuestEvent>("web1");
    event->runIs(7);
    event->kindIs(rt::String(std::string(word::wished)));
    event->reasonIs(rt::String(std::string(what)));
    event->byIs(who);
    return event;
  };
  GuestRun run = runOf({started, resumed});
  take(run, *by("pause", "op1"));
  EXPECT_EQ(run.pausedBy, "op1");
  take(run, *by("stop", "op2"));
  run.askedUp = run.startedUp + 1'000;
  run.shutdown = "guest-shutdown";
  run.endedUp = run.startedUp + 4'000;
  EXPECT_EQ(endOf(run, {}).text, "the guest was asked to shut down by op2, and did in 3 s");
  EXPECT_EQ(endOf(run, {.askedBy = "op3"}).by, "op2");
}

}  // namespace
}  // namespace host
