#include "host/state/EndOf.h"

#include <algorithm>
#include <array>
#include <csignal>

#include "host/state/TimeSpan.h"
#include "runtime/base/Text.h"

namespace host {

namespace {

struct Word {
  EndCause cause;
  const char* text;
  const char* by;
  bool isFailure;
};

constexpr const char* anOperator = "operator";  // where nobody knows which

constexpr std::array words{
    Word{EndCause::none, "", "", false},
    Word{EndCause::guestShutdown, "guest-shutdown", "guest", false},
    Word{EndCause::asked, "asked", anOperator, false},
    Word{EndCause::askedForced, "asked-forced", anOperator, false},
    Word{EndCause::poweredOff, "powered-off", anOperator, false},
    Word{EndCause::signal, "signal", "stranger", true},
    Word{EndCause::killed, "killed", "unknown", true},
    Word{EndCause::memoryLimit, "memory-limit", "kernel", true},
    Word{EndCause::startFailed, "start-failed", "QEMU", true},
    Word{EndCause::qemuCrashed, "qemu-crashed", "QEMU", true},
    Word{EndCause::qemuFailed, "qemu-failed", "QEMU", true},
    Word{EndCause::shimLost, "shim-lost", "unknown", true},
    Word{EndCause::guestPanic, "guest-panic", "guest", true},
    Word{EndCause::watchdog, "watchdog", "guest", true},
    Word{EndCause::guestReset, "guest-reset", "guest", false},
    Word{EndCause::quit, "quit", "stranger", true},
    Word{EndCause::unknown, "unknown", "unknown", true},
    Word{EndCause::hostDown, "host-down", "host", false},
    Word{EndCause::hostReboot, "host-reboot", "host", false},
};

const Word& wordOf(EndCause cause) { return words.at(static_cast<size_t>(cause)); }

bool isCrash(int32_t signal) {
  return signal == SIGSEGV || signal == SIGABRT || signal == SIGBUS || signal == SIGILL ||
         signal == SIGFPE || signal == SIGSYS || signal == SIGTRAP;
}

bool wasSwitchedOff(const GuestRun& run) {
  return run.wasQuit || run.wasTerminated || run.wasKilled;
}

EndCause causeOfSignal(const GuestRun& run) {
  if (run.wasAtMemoryLimit) return EndCause::memoryLimit;
  if (isCrash(run.signal)) return EndCause::qemuCrashed;
  if (!run.killedFor.empty() && run.signal == SIGKILL) return EndCause::qemuFailed;
  const bool isOurs =
      run.signal == SIGKILL ? run.wasKilled : run.signal == SIGTERM && run.wasTerminated;
  if (isOurs && run.toldBy.empty())
    return run.askedUp != 0 ? EndCause::askedForced : EndCause::poweredOff;
  if (isOurs || run.signal != SIGKILL) return EndCause::signal;
  return EndCause::killed;
}

// Of a QEMU that ended with status 0 and whose guest did not break down.
EndCause causeOfShutdown(const GuestRun& run) {
  if (run.shutdown == "guest-shutdown")
    return run.askedUp != 0 ? EndCause::asked : EndCause::guestShutdown;
  if (run.shutdown == "guest-reset") return EndCause::guestReset;
  if (run.shutdown == "guest-panic") return EndCause::guestPanic;
  if (!run.toldBy.empty()) return EndCause::signal;
  if (wasSwitchedOff(run)) return run.askedUp != 0 ? EndCause::askedForced : EndCause::poweredOff;
  if (run.shutdown == "host-signal") return EndCause::signal;
  if (run.shutdown == "host-qmp-quit") return EndCause::quit;
  return run.askedUp != 0 ? EndCause::asked : EndCause::unknown;
}

EndCause causeOf(const GuestRun& run, const EndKnowledge& known) {
  if (!run.hasEnded()) return known.isOverdue ? EndCause::poweredOff : EndCause::shimLost;
  if (run.signal != 0) return causeOfSignal(run);
  if (run.hasPanicked) return EndCause::guestPanic;
  if (run.exit != 0) return run.hasRun() ? EndCause::qemuFailed : EndCause::startFailed;
  if (!run.watchdogAction.empty() && run.shutdown.empty() && !wasSwitchedOff(run))
    return EndCause::watchdog;
  return causeOfShutdown(run);
}

rt::String afterText(const GuestRun& run) {
  if (run.startedUp == 0 || run.endedUp < run.startedUp) return {};
  return ", after " + spanText(run.endedUp - run.startedUp);
}

rt::String sinceAsked(const GuestRun& run) { return spanText(run.endedUp - run.askedUp); }

const rt::String& whoAsked(const GuestRun& run, const EndKnowledge& known) {
  return run.endedBy.empty() ? known.askedBy : run.endedBy;
}

rt::String byWhom(const GuestRun& run, const EndKnowledge& known) {
  const rt::String& who = whoAsked(run, known);
  return who.empty() ? rt::String() : " by " + who;
}

rt::String authorOf(EndCause cause, const GuestRun& run, const EndKnowledge& known) {
  const rt::String& who = whoAsked(run, known);
  const rt::String word = wordOf(cause).by;
  return word == anOperator && !who.empty() ? who : word;
}

rt::String textOf(EndCause cause, const GuestRun& run, const EndKnowledge& known) {
  const rt::String signal = rt::toText(run.signal);
  switch (cause) {
    case EndCause::none:
      return {};
    case EndCause::guestShutdown:
      return "the guest shut itself down" + afterText(run);
    case EndCause::asked:
      return "the guest was asked to shut down" + byWhom(run, known) + ", and did in " +
             sinceAsked(run);
    case EndCause::askedForced:
      return "the guest was asked to shut down" + byWhom(run, known) + ", did not for " +
             sinceAsked(run) + ", and was switched off";
    case EndCause::poweredOff:
      return "the guest was switched off" + byWhom(run, known) +
             (run.hasEnded() ? afterText(run) : rt::String(", and its shim did not answer"));
    case EndCause::signal:
      if (!run.toldBy.empty()) return "the guest was ended by " + run.toldBy;
      return run.signal != 0 ? "QEMU was ended by signal " + signal
                             : "QEMU ended: " + run.lastWords;
    case EndCause::killed:
      return "QEMU was killed by signal 9; who sent it cannot be known";
    case EndCause::memoryLimit:
      return run.lastWords;
    case EndCause::startFailed:
      return "QEMU did not start: " + run.lastWords;
    case EndCause::qemuCrashed:
      return "QEMU crashed with signal " + signal;
    case EndCause::qemuFailed:
      return run.killedFor.empty() ? "QEMU gave up: " + run.lastWords : run.killedFor;
    case EndCause::shimLost:
      return "its shim was killed, and QEMU ended with it";
    case EndCause::guestPanic:
      return "the guest panicked" + afterText(run);
    case EndCause::watchdog:
      return "the guest did not feed its watchdog, which switched it off";
    case EndCause::guestReset:
      return "the guest reset itself, which ends it" + afterText(run);
    case EndCause::quit:
      return "somebody told its QEMU to quit, over its monitor";
    case EndCause::unknown:
      return "QEMU ended with status " + rt::toText(run.exit) + " and told no reason";
    case EndCause::hostDown:
      return "the switch was shut down";
    case EndCause::hostReboot:
      return "the switch was restarted without notice";
  }
  return {};
}

rt::String briefOf(EndCause cause, const GuestRun& run) {
  switch (cause) {
    case EndCause::none:
      return {};
    case EndCause::guestShutdown:
      return "guest shut itself down";
    case EndCause::asked:
      return "shut down as asked";
    case EndCause::askedForced:
      return "switched off, was deaf";
    case EndCause::poweredOff:
      return "switched off";
    case EndCause::signal:
      return run.signal != 0 ? "signal " + rt::toText(run.signal) : "ended by a signal";
    case EndCause::killed:
      return "signal 9, sender unknown";
    case EndCause::memoryLimit:
      return "limit of memory";
    case EndCause::startFailed:
      return "QEMU did not start";
    case EndCause::qemuCrashed:
      return "QEMU crashed, signal " + rt::toText(run.signal);
    case EndCause::qemuFailed:
      return "QEMU gave up";
    case EndCause::shimLost:
      return "its shim was killed";
    case EndCause::guestPanic:
      return "guest panicked";
    case EndCause::watchdog:
      return "watchdog";
    case EndCause::guestReset:
      return "guest reset itself";
    case EndCause::quit:
      return "QEMU was told to quit";
    case EndCause::unknown:
      return "no reason was told";
    case EndCause::hostDown:
      return "switch was shut down";
    case EndCause::hostReboot:
      return "switch was restarted";
  }
  return {};
}

}  // namespace

rt::String textOf(EndCause cause) { return wordOf(cause).text; }

End endOf(const GuestRun& run, const EndKnowledge& known) {
  if (run.run == 0 || (!run.hasEnded() && known.hasProcess)) return {};
  const EndCause cause = causeOf(run, known);
  return {cause,
          textOf(cause, run, known),
          briefOf(cause, run),
          authorOf(cause, run, known),
          wordOf(cause).isFailure,
          run.endedAt,
          run.exit,
          run.signal};
}

EndCause endCauseFrom(std::string_view word) {
  const auto* const found =
      std::find_if(words.begin(), words.end(), [&](const Word& each) { return word == each.text; });
  return found == words.end() ? EndCause::unknown : found->cause;
}

End endWithMachine(const End& end) {
  End of = end;
  of.cause = EndCause::hostDown;
  of.text = textOf(of.cause, {}, {}) + ": " + end.text;
  of.brief = briefOf(of.cause, {});
  of.by = wordOf(of.cause).by;
  of.isFailure = false;
  return of;
}

End endByReboot(uint64_t bootedAt) {
  const EndCause cause = EndCause::hostReboot;
  return {cause, textOf(cause, {}, {}), briefOf(cause, {}), wordOf(cause).by, false, bootedAt, 0,
          0};
}

}  // namespace host
