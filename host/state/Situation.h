// All that is known of one VM at one moment.
#pragma once

#include <optional>

#include "host/state/EndOf.h"

namespace host {

enum class Wanted : uint8_t {
  stopped,
  running,
  gone,     // its row was removed, and its guest has not ended yet
  unknown,  // its row cannot be read and never could, or nobody has a row of it
};

// Written by those who know, read by the functions of VmState.h.
struct Situation {
  // From its keeper.
  Wanted wanted = Wanted::stopped;
  bool hasProcess = false;
  bool isEnding = false;           // it was asked to end, or is switched off
  bool isStarted = false;          // the agent has taken its start as done
  bool isRefused = false;          // its row, or its image, keeps it from being started
  bool waits = false;              // for what has to come before its start
  rt::String agentState;           // "Starting", "Running", "Stopped" or empty
  std::optional<uint64_t> nextUp;  // when it is tried again, in ms since boot
  std::optional<uint64_t> stopUp;  // when it is switched off that was asked to end, likewise

  // From its shim.
  GuestRun run;
  End end;  // the last one; what is kept of it when it runs again

  // From all who find something wrong: the weightiest, and what kind it is of.
  rt::String problem;
  rt::String problemSource;

  uint64_t nowUp = 0;  // ms since the machine was booted
};

}  // namespace host
