// What is so of a VM, why, and what comes next: what an operator is told.
//
// All of it is pure, and decided here and nowhere else: who shows it decides nothing.
#pragma once

#include "host/state/Situation.h"

namespace host {

// The first that holds:
//
//   stopping  | a process that is to end, whoever told its shim so
//   hung      | a process whose QEMU, or shim, has not answered for ten seconds
//   crashed   | a process whose guest has panicked
//   paused    | a process whose guest QEMU holds
//   running   | a process whose guest was let run
//   starting  | any other process
//   refused   | none, and row or image keeps it from being started
//   retrying  | none, wanted, and it is tried again later
//   crashed   | none, wanted, and what kept it from its start, or its last end, was a failure
//   starting  | none, wanted, and it waits for its turn
//   stopped   | none
enum class Actual : uint8_t {
  stopped,
  starting,
  running,
  paused,
  stopping,
  hung,
  crashed,
  retrying,
  refused,
};
rt::String textOf(Wanted wanted);
rt::String textOf(Actual actual);

Actual actualOf(const Situation& now);

// How bad it is: "ok", "note", "busy" or "bad".
rt::String severityOf(const Situation& now);

// Why it is not, or not long, as it is wanted; or what is wrong though it is.
struct Reason {
  rt::String word;  // stays the same; empty: there is nothing to say
  rt::String text;
  rt::String brief;      // the same in few words
  rt::String subject{};  // of what of it; empty: of the VM
  uint64_t since = 0;    // in seconds since 1970; 0: as long as its state
};
Reason reasonOf(const Situation& now);

// What happens next, or what to type.
struct NextStep {
  rt::String kind;  // "auto": by itself; "wait": when something else happens; "command"; "none"
  rt::String text;
  rt::String brief;            // in a word, before the time
  rt::String command;          // to type
  std::optional<uint64_t> up;  // when, in ms since boot
};
NextStep nextOf(const Situation& now, const rt::String& vm);

// When the answers may be others though nothing happens, in ms since boot.
std::optional<uint64_t> wakeUpOf(const Situation& now);

}  // namespace host
