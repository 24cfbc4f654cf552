// All that is known of one VM at one moment.
#pragma once

#include <optional>

#include "host/state/EndOf.h"
#include "model/ProblemSource.h"
#include "runtime/base/Seconds.h"

namespace host {

enum class Wanted : uint8_t {
  stopped,
  running,
  gone,     // its row was removed, and its guest has not ended yet
  unknown,  // its row cannot be read and never could, or nobody has a row of it
};

// What a VM's keeper knows of it. Times are the loop's; infinity: never.
struct KeeperView {
  Wanted wanted = Wanted::stopped;
  bool hasProcess = false;
  bool mayGoOn = false;         // an earlier daemon's guest waits for its row
  bool isEnding = false;        // it was asked to end, or is switched off
  bool isOutOfReach = false;    // its guest goes on, and nobody drives it
  bool isStarted = false;       // the agent takes its start for done
  bool isStartedAgain = false;  // by its policy, when the guest before had ended
  bool isRefused = false;       // its row, or its image, keeps it from being started
  rt::String agentState;        // "Starting", "Running", "Stopped" or empty
  rt::String startsAfter;       // the VM whose start it waits for; empty: none
  rt::Seconds turnAt = rt::Seconds::infinity();  // when it does not any more
  rt::Seconds tryAt = rt::Seconds::infinity();   // when its start is tried again
  rt::Seconds stopAt = rt::Seconds::infinity();  // when it is switched off that was asked to end
};

// A card that its guest has no line at.
struct CardTrouble {
  rt::String card;       // its key
  rt::String interface;  // that it is on
  bool isGone = false;   // there is no such interface; else it has no carrier
  uint64_t since = 0;    // seconds since 1970

  friend bool operator==(const CardTrouble&, const CardTrouble&) = default;
};

// Put together by VmStates, read by the functions of VmState.h.
struct Situation {
  Wanted wanted = Wanted::stopped;
  bool hasProcess = false;
  bool isEnding = false;
  bool isOutOfReach = false;
  bool isUnanswered = false;  // the agent had no answer for ten seconds
  bool isStarted = false;
  bool isStartedAgain = false;
  bool isRefused = false;
  rt::String agentState;
  rt::String startsAfter;
  std::optional<uint64_t> turnUp;  // when it is its turn to be started, in ms since boot
  std::optional<uint64_t> nextUp;  // when its start is tried again, in ms since boot
  std::optional<uint64_t> stopUp;  // when it is switched off that was asked to end, likewise

  GuestRun run;
  End end;             // the last one; what is kept of it when it runs again
  rt::String askedBy;  // which operator asked to end or start it last; empty: nobody knows

  // The weightiest of all that is wrong with it, and what kind that is of.
  rt::String problem;
  model::ProblemSource problemSource{};
  CardTrouble card;  // what is meant where that is a line

  uint64_t nowUp = 0;  // ms since the machine was booted
};

}  // namespace host
