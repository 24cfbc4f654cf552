// What operators ask to be done once.
#pragma once

#include "statedb/StateDb.h"

namespace host {

// The number of restarts that a row of vmIntent asks for; 0, after a report, when it cannot be
// read.
uint64_t restartOf(const statedb::Record& row);

}  // namespace host
