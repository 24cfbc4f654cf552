// Why a guest has ended.
#pragma once

#include "host/state/GuestRun.h"

namespace host {

// Each has a word that stays the same: see textOf().
enum class EndCause : uint8_t {
  none,           // it has not ended, or nothing is known of it
  guestShutdown,  // it shut itself down, and nobody had asked it to
  asked,          // it was asked to, and shut itself down
  askedForced,    // it was asked to, did not, and was switched off
  poweredOff,     // it was switched off without being asked
  signal,         // a stranger's signal ended it, in order
  killed,         // SIGKILL of a stranger's
  memoryLimit,    // the kernel killed it at its limit of memory
  startFailed,    // its QEMU ended before it ran
  qemuCrashed,
  qemuFailed,  // its QEMU gave up, or had to be killed
  shimLost,    // its shim was killed, and QEMU ended with it
  guestPanic,
  watchdog,
  guestReset,  // it reset itself, and its QEMU takes that for an end
  quit,        // a stranger told its QEMU to
  unknown,     // nobody told a reason
};
// "guest-shutdown", "asked", "asked-forced", …; empty for none.
rt::String textOf(EndCause cause);

struct End {
  EndCause cause = EndCause::none;
  rt::String text;   // a clause: "the guest shut itself down, after 26 min"
  rt::String brief;  // the same in 25 characters at most
  // "guest", "QEMU", "kernel", "stranger", "unknown", or which operator: where nobody knows that,
  // "operator".
  rt::String by;
  bool isFailure = false;
  uint64_t at = 0;  // ms since 1970; 0: not known
  int32_t exit = 0;
  int32_t signal = 0;
};
constexpr size_t longestBrief = 25;

// What the host knows beside what the shim told.
struct EndKnowledge {
  bool hasProcess = false;
  rt::String askedBy{};  // which operator asked the host to end it; empty: nobody knows
};

// The strongest evidence decides: QEMU's exit status says nothing by itself, for a guest that
// powered off, one that panicked and one that was told to quit all end with 0. Pure.
End endOf(const GuestRun& run, const EndKnowledge& known);

}  // namespace host
