// What operators ask to be done once.
#pragma once

#include "statedb/StateDb.h"

namespace host {

// A row of vmIntent.
struct Intent {
  uint64_t restart = 0;  // how many restarts were asked for
  bool ifEnded = false;  // the last of these is of a guest that has ended: one that runs goes on
  uint64_t stop = 0;     // how many stops with a time of their own
  int32_t within = -1;   // seconds that the guest gets by the last of these; -1: as always
  rt::String remove{};   // the name of a guest of an unknown VM that is to end
};

// Nothing of it, after a report, when it cannot be read.
Intent intentOf(const statedb::Record& row);

}  // namespace host
