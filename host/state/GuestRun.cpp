#include "host/state/GuestRun.h"

#include <algorithm>
#include <array>

#include "guest/EventWords.h"
#include "guest/ShimProtocol.h"

namespace host {

namespace {

namespace word = guest::event;

void takeStart(GuestRun& run, const GuestEvent& event) {
  run.qemu = event.pid();
  run.startedAt = event.at();
  run.startedUp = event.up();
}

void takeReady(GuestRun& run, const GuestEvent& event) { run.version = event.text(); }

void takeResume(GuestRun& run, const GuestEvent& /*event*/) {
  run.state = RunState::running;
  run.stateText = {};
  run.pausedBy = {};
}

// It is told before what comes of it.
void takeWish(GuestRun& run, const GuestEvent& event) {
  if (event.reason() == guest::word::pause) run.pausedBy = event.by();
  if (event.reason() == guest::word::resume) run.resumedBy = event.by();
  if (event.reason() == guest::word::reset) run.resetBy = event.by();
  if (event.reason() == guest::word::stop && run.endedBy.empty()) run.endedBy = event.by();
}

// QEMU first says what it pauses a guest for.
void takePause(GuestRun& run, const GuestEvent& /*event*/) {
  if (run.state == RunState::running || run.state == RunState::suspended)
    run.state = RunState::paused;
}

void takeReset(GuestRun& run, const GuestEvent& event) {
  ++run.resets;
  run.resetAt = event.at();
  run.wasResetByGuest = event.byGuest();
  if (run.state == RunState::panicked) run.state = RunState::running;
  // It has begun anew: what it came to before has no part in its end.
  run.hasPanicked = false;
  run.watchdogAction = {};
}

void takeSuspension(GuestRun& run, const GuestEvent& /*event*/) { run.state = RunState::suspended; }

void takeShutdown(GuestRun& run, const GuestEvent& event) { run.shutdown = event.reason(); }

void takePanic(GuestRun& run, const GuestEvent& /*event*/) {
  run.hasPanicked = true;
  run.state = RunState::panicked;
}

void takeWatchdog(GuestRun& run, const GuestEvent& event) {
  run.watchdogAction = event.reason();
  if (event.reason() == "pause") run.state = RunState::watchdog;
}

// One that QEMU only reports to the guest is the guest's affair.
void takeDiskError(GuestRun& run, const GuestEvent& event) {
  run.stateText = event.text();
  if (event.reason() == "stop") run.state = RunState::diskError;
}

void takeQuestion(GuestRun& run, const GuestEvent& event) {
  if (run.askedUp == 0) run.askedUp = event.up();
}

void takeOrder(GuestRun& run, const GuestEvent& event) {
  if (event.reason() == "stranger" && run.toldBy.empty()) run.toldBy = event.text();
}

void takeQuit(GuestRun& run, const GuestEvent& /*event*/) { run.wasQuit = true; }

void takeTermination(GuestRun& run, const GuestEvent& /*event*/) { run.wasTerminated = true; }

void takeKill(GuestRun& run, const GuestEvent& event) {
  run.wasKilled = true;
  run.killedFor = event.text();
}

void takeSilence(GuestRun& run, const GuestEvent& event) {
  if (run.silentUp == 0) run.silentUp = event.up();
}

void takeAnswer(GuestRun& run, const GuestEvent& /*event*/) { run.silentUp = 0; }

void takeEnd(GuestRun& run, const GuestEvent& event) {
  run.endedAt = event.at();
  run.endedUp = event.up();
  run.exit = event.exit();
  run.signal = event.signal();
  run.wasAtMemoryLimit = event.reason() == word::memoryLimit;
  run.lastWords = event.text();
}

struct Taker {
  std::string_view kind;
  void (*take)(GuestRun&, const GuestEvent&);
};

constexpr std::array takers{
    Taker{word::started, takeStart},       Taker{word::ready, takeReady},
    Taker{word::resumed, takeResume},      Taker{word::paused, takePause},
    Taker{word::reset, takeReset},         Taker{word::suspended, takeSuspension},
    Taker{word::wokenUp, takeResume},      Taker{word::shutDown, takeShutdown},
    Taker{word::panicked, takePanic},      Taker{word::watchdog, takeWatchdog},
    Taker{word::diskError, takeDiskError}, Taker{word::wished, takeWish},
    Taker{word::askedToEnd, takeQuestion}, Taker{word::toldToEnd, takeOrder},
    Taker{word::quit, takeQuit},           Taker{word::terminated, takeTermination},
    Taker{word::killed, takeKill},         Taker{word::silent, takeSilence},
    Taker{word::answers, takeAnswer},      Taker{word::end, takeEnd},
};

}  // namespace

void take(GuestRun& run, const GuestEvent& event) {
  if (run.run != event.run()) {
    run = {};
    run.run = event.run();
  }
  const auto* const found = std::find_if(
      takers.begin(), takers.end(), [&](const Taker& taker) { return event.kind() == taker.kind; });
  if (found != takers.end()) found->take(run, event);
}

}  // namespace host
