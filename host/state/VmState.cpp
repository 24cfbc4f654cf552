#include "host/state/VmState.h"

#include <array>

namespace host {

namespace {

using model::ProblemSource;

constexpr uint64_t hungAfter = 10'000;   // ms
constexpr uint64_t isNewsFor = 600'000;  // ms, that a guest had ended

constexpr std::array wantedWords{"stopped", "running", "gone", "unknown"};
constexpr std::array actualWords{"stopped", "starting", "running",  "paused", "stopping",
                                 "hung",    "crashed",  "retrying", "refused"};

bool isWanted(const Situation& now) { return now.wanted == Wanted::running; }

// As its shim says, which tells the agent so.
bool isQemuHung(const Situation& now) {
  return now.run.silentUp != 0 && now.nowUp >= now.run.silentUp + hungAfter;
}

bool isHung(const Situation& now) { return now.isUnanswered || isQemuHung(now); }

bool isHeld(RunState state) {
  return state == RunState::paused || state == RunState::suspended ||
         state == RunState::diskError || state == RunState::watchdog;
}

// A shim of an earlier version tells nothing, and without shims nobody does: then the agent's word
// is all there is.
bool hasRun(const Situation& now) {
  const bool isBeginKnown = now.run.startedUp != 0;  // of a long run it is in no file any more
  return now.run.hasRun() || (!isBeginKnown && now.agentState == "Running");
}

// Its shim ends it, and tells who wanted that.
bool isBeingEnded(const GuestRun& run) {
  return run.askedUp != 0 || run.wasQuit || run.wasTerminated || run.wasKilled;
}

Actual ofProcess(const Situation& now) {
  if (now.isEnding || isBeingEnded(now.run)) return Actual::stopping;
  if (isHung(now)) return Actual::hung;
  if (now.run.state == RunState::panicked) return Actual::crashed;
  if (isHeld(now.run.state)) return Actual::paused;
  return hasRun(now) ? Actual::running : Actual::starting;
}

// What keeps a VM from its start, or was wrong with the last one.
bool isOfStart(ProblemSource source) {
  return source == ProblemSource::config || source == ProblemSource::image ||
         source == ProblemSource::memory || source == ProblemSource::qemu ||
         source == ProblemSource::agent;
}

Actual ofNoProcess(const Situation& now) {
  if (now.isRefused) return Actual::refused;
  if (!isWanted(now)) return Actual::stopped;
  if (now.nextUp) return Actual::retrying;
  if (!now.problem.empty() && isOfStart(now.problemSource)) return Actual::crashed;
  if (!now.isStarted) return Actual::starting;
  return now.end.isFailure ? Actual::crashed : Actual::stopped;
}

// Nothing is wrong: something is only to be known.
bool isNote(const Situation& now) {
  return !now.problem.empty() && (now.problemSource == ProblemSource::restart ||
                                  now.problemSource == ProblemSource::format);
}

// For little room, what a problem is of. In the order of the sources.
constexpr std::array<const char*, model::problemSources.size()> briefs{"row refused",
                                                                       "disk image refused",
                                                                       "not enough memory",
                                                                       "QEMU failed",
                                                                       "start failed",
                                                                       "a card has no line",
                                                                       "its shim finds fault",
                                                                       "card not attached",
                                                                       "changed since its start",
                                                                       "image's format in doubt"};

bool isOfLine(const Situation& now) {
  return !now.problem.empty() && now.problemSource == ProblemSource::line;
}

// "nic00: Ethernet1 no line". Names may be long; what is said of them stays.
rt::String briefOf(const CardTrouble& card) {
  constexpr std::string_view mark = "…";  // takes one place
  const std::string_view said = card.isGone ? " gone" : " no line";
  rt::String names = card.card + ": " + card.interface;
  if (names.size() + said.size() > longestBrief) {
    size_t end = longestBrief - said.size() - 1;
    const auto isInside = [&](size_t at) {
      return (static_cast<unsigned char>(names.str()[at]) & 0xc0U) == 0x80U;
    };
    while (end > 0 && isInside(end)) --end;
    names = names.substr(0, end) + mark;
  }
  return names + said;
}

Reason ofLine(const Situation& now) {
  return {now.card.isGone ? "gone" : "no-carrier", now.problem, briefOf(now.card), now.card.card,
          now.card.since};
}

NextStep untilLine(const Situation& now) {
  return {"wait",
          now.card.isGone ? "when " + now.card.interface + " is there"
                          : rt::String("when the line comes back"),
          {},
          {},
          {}};
}

Reason ofProblem(const Situation& now) {
  if (now.problem.empty()) return {};
  if (now.problemSource == ProblemSource::line) return ofLine(now);
  return {rt::String(model::textOf(now.problemSource)), now.problem,
          briefs.at(static_cast<size_t>(now.problemSource))};
}

Reason ofEnd(const Situation& now) {
  if (now.end.cause == EndCause::none) return ofProblem(now);
  return {textOf(now.end.cause), now.end.text, now.end.brief};
}

// An end that left no word of the shim's may still have left one of the daemon's.
Reason ofFailure(const Situation& now) {
  const bool knowsMore = !now.problem.empty() && isOfStart(now.problemSource);
  const bool isKnown = now.end.cause != EndCause::none && now.end.cause != EndCause::unknown;
  return knowsMore && !isKnown ? ofProblem(now) : ofEnd(now);
}

Reason ofPause(const Situation& now) {
  switch (now.run.state) {
    case RunState::diskError:
      return {"disk-error", "its disk failed, and QEMU paused it: " + now.run.stateText,
              "disk: " + now.run.stateText};
    case RunState::watchdog:
      return {"watchdog", "it did not feed its watchdog, and QEMU paused it", "watchdog"};
    case RunState::suspended:
      return {"suspended", "the guest has suspended itself", "suspended itself"};
    default:
      if (!now.run.pausedBy.empty())
        return {"paused", "it was paused by " + now.run.pausedBy, "by " + now.run.pausedBy};
      return {"paused", "it was paused over its monitor", "by hand"};
  }
}

// It runs as it should, and an operator may wonder since when.
bool isJustStartedAgain(const Situation& now) {
  return now.isStartedAgain && now.problem.empty() && now.end.cause != EndCause::none &&
         now.run.startedUp != 0 && now.nowUp < now.run.startedUp + isNewsFor;
}

Reason ofStartAgain(const Situation& now) {
  return {"started-again", "it was started again: " + now.end.text, "started again"};
}

// What it does is not known to have changed.
bool isCutOff(const Situation& now) { return now.isOutOfReach && now.hasProcess && !now.isEnding; }

Reason ofCut(const Situation& now) {
  const rt::String cause = now.problem.empty() ? rt::String() : ": " + now.problem;
  return {"out-of-reach", "it goes on, and nobody drives it" + cause, "nobody drives it"};
}

rt::String byWhom(const Situation& now) {
  return now.askedBy.empty() ? rt::String() : " by " + now.askedBy;
}

Reason ofStop(const Situation& now) {
  if (now.wanted == Wanted::gone) return {"removed", "it was removed", "removed"};
  if (!now.run.toldBy.empty())
    return {"signal", "its shim was told to end it, by " + now.run.toldBy, "signal to its shim"};
  // Until its shim tells that it was, its keeper knows that it gets its time.
  const bool getsTime = now.stopUp && *now.stopUp > now.nowUp;
  if ((now.run.askedUp != 0 || getsTime) && !isWanted(now))
    return {"asked", "it was asked to shut down" + byWhom(now), "asked to shut down"};
  if (isWanted(now)) return {"restart", "it is ended to be started anew", "restart"};
  return {"asked", "it is switched off" + byWhom(now), "switched off"};
}

}  // namespace

rt::String textOf(Wanted wanted) { return wantedWords.at(static_cast<size_t>(wanted)); }
rt::String textOf(Actual actual) { return actualWords.at(static_cast<size_t>(actual)); }

Actual actualOf(const Situation& now) { return now.hasProcess ? ofProcess(now) : ofNoProcess(now); }

rt::String severityOf(const Situation& now) {
  switch (actualOf(now)) {
    case Actual::running:
      if (isCutOff(now)) return "bad";
      if (!now.problem.empty()) return isNote(now) ? "note" : "bad";
      return isWanted(now) && !isJustStartedAgain(now) ? "ok" : "note";
    case Actual::stopped:
      return isWanted(now) ? "note" : "ok";
    case Actual::starting:
    case Actual::stopping:
      return "busy";
    case Actual::paused:
      return now.run.state == RunState::paused || now.run.state == RunState::suspended ? "note"
                                                                                       : "bad";
    default:
      return "bad";
  }
}

Reason reasonOf(const Situation& now) {
  if (isCutOff(now)) return ofCut(now);
  switch (actualOf(now)) {
    case Actual::stopping:
      return ofStop(now);
    case Actual::hung:
      if (now.run.silentUp == 0)
        return {"hung", "its shim does not answer", "shim does not answer"};
      return {"hung", "its QEMU does not answer", "QEMU does not answer"};
    case Actual::paused:
      return ofPause(now);
    case Actual::refused:
      return ofProblem(now);
    case Actual::retrying:
      return ofFailure(now);
    case Actual::crashed:
      if (now.hasProcess)
        return {"guest-panic", "the guest has panicked, and QEMU goes on", "guest panicked"};
      return ofFailure(now);
    case Actual::stopped:
      if (isWanted(now)) return ofEnd(now);
      // Of a VM that is off, only its row can be wrong.
      return now.problemSource == ProblemSource::config ? ofProblem(now) : Reason{};
    case Actual::running:
      return isJustStartedAgain(now) ? ofStartAgain(now) : ofProblem(now);
    case Actual::starting:
      if (!now.startsAfter.empty())
        return {"start-order", "it is started after " + now.startsAfter,
                "after " + now.startsAfter};
      return ofProblem(now);
  }
  return {};
}

NextStep nextOf(const Situation& now, const rt::String& vm) {
  if (now.wanted == Wanted::unknown && actualOf(now) == Actual::running)
    return {"wait",
            "goes on until its VM is configured again, or removed with --force",
            "goes on",
            {},
            {}};
  const auto toType = [&](const char* verb, const char* option = "") {
    return NextStep{"command", {}, verb, rt::String("vmctl ") + verb + " " + vm + option, {}};
  };
  if (isCutOff(now) && now.nextUp) return {"auto", "is taken up again", "again", {}, now.nextUp};
  switch (actualOf(now)) {
    case Actual::stopping:
      if (now.stopUp) return {"auto", "is switched off", "off", {}, now.stopUp};
      break;
    case Actual::retrying:
      return {"auto", "is started again", "again", {}, now.nextUp};
    case Actual::refused:
      if (now.problemSource == ProblemSource::config) return toType("edit");
      if (now.nextUp) return {"auto", "is tried again", "again", {}, now.nextUp};
      return {"wait", "is started once that is mended", {}, {}, {}};
    case Actual::hung:
      return toType("restart", " --now");
    case Actual::crashed:
    case Actual::stopped:
      if (now.hasProcess) return toType("reset");
      if (isWanted(now)) return toType("start");
      break;
    case Actual::running:
      if (isNote(now)) return toType("restart");
      if (isOfLine(now)) return untilLine(now);
      break;
    case Actual::paused:
      if (now.run.state != RunState::suspended) return toType("resume");
      break;
    case Actual::starting:
      if (now.turnUp) return {"auto", "is started", "starts", {}, now.turnUp};
      if (!now.startsAfter.empty())
        return {"wait", "is started after " + now.startsAfter, {}, {}, {}};
      break;
  }
  return {"none", {}, {}, {}, {}};
}

std::optional<uint64_t> wakeUpOf(const Situation& now) {
  if (!now.hasProcess) return std::nullopt;
  if (now.run.silentUp != 0 && !isHung(now)) return now.run.silentUp + hungAfter;
  if (actualOf(now) == Actual::running && isJustStartedAgain(now))
    return now.run.startedUp + isNewsFor;
  return std::nullopt;
}

}  // namespace host
