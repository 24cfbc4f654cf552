// One run of a guest, put together from what its shim told.
#pragma once

#include "host/state/GuestEvent.h"

namespace host {

// How a guest is that has a QEMU.
enum class RunState : uint8_t {
  booting,  // it was not let run yet
  running,
  paused,     // by whoever speaks to its QEMU
  suspended,  // by itself
  diskError,  // QEMU paused it: its disk failed
  watchdog,   // QEMU paused it: its watchdog was not fed
  panicked,   // QEMU goes on, the guest does not
};

// What is known of a run. Times are in ms: `…At` since 1970, `…Up` since the machine was booted; 0
// for what was not.
struct GuestRun {
  uint64_t run = 0;  // 0: nothing is known of any
  int32_t qemu = 0;  // its process
  rt::String version;
  uint64_t startedAt = 0;
  uint64_t startedUp = 0;

  RunState state = RunState::booting;
  rt::String stateText;   // what QEMU said of a disk's failure
  uint64_t silentUp = 0;  // since when QEMU does not answer
  uint64_t resets = 0;
  uint64_t resetAt = 0;  // the last
  bool wasResetByGuest = false;

  // Which operator asked its shim for what; empty: none did.
  rt::String pausedBy;
  rt::String resumedBy;  // and it has not run since
  rt::String resetBy;
  rt::String endedBy;

  // What its shim did to end it.
  uint64_t askedUp = 0;  // when its power button was pressed first
  bool wasQuit = false;
  bool wasTerminated = false;
  bool wasKilled = false;
  rt::String killedFor;
  rt::String toldBy;  // the stranger's signal that had it do so

  // What QEMU said of its end.
  rt::String shutdown;  // the reason; empty: nothing
  bool hasPanicked = false;
  rt::String watchdogAction;  // empty: it was fed

  uint64_t endedAt = 0;
  uint64_t endedUp = 0;
  int32_t exit = 0;
  int32_t signal = 0;
  bool wasAtMemoryLimit = false;  // the kernel ended QEMU for that
  rt::String lastWords;

  bool hasRun() const { return state != RunState::booting; }
  bool hasEnded() const { return endedUp != 0; }
};

// Adds what the event tells. The first of a run begins it anew. Pure.
void take(GuestRun& run, const GuestEvent& event);

}  // namespace host
