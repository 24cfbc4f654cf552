// Why a guest has ended.
#pragma once

#include <string_view>

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
  hostDown,    // the machine went down in order, and had it end before
  hostReboot,  // the machine began anew without notice
};
// "guest-shutdown", "asked", "asked-forced", …; empty for none.
rt::String textOf(EndCause cause);
// The reverse; unknown for a word that there is none for.
EndCause endCauseFrom(std::string_view word);

struct End {
  EndCause cause = EndCause::none;
  rt::String text;   // a clause: "the guest shut itself down, after 26 min"
  rt::String brief;  // the same in 25 characters at most
  // "guest", "QEMU", "kernel", "stranger", "host", "unknown", or which operator; "operator": nobody
  // knows which.
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
  bool isOverdue = false;  // it was told to end, did not in time, and its process was killed
  rt::String askedBy{};    // which operator asked the host to end it; empty: nobody knows
};

// The strongest evidence decides: QEMU's exit status says nothing by itself, for a guest that
// powered off, one that panicked and one that was told to quit all end with 0. Pure.
End endOf(const GuestRun& run, const EndKnowledge& known);

// That end of one that was asked to because the machine went down. Pure.
End endWithMachine(const End& end);
// Of one that ran when the machine began anew, at that time in ms since 1970. Pure.
End endByReboot(uint64_t bootedAt);

}  // namespace host
