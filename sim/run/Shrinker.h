// The shortest story that fails like another.
#pragma once

#include <functional>

#include "sim/run/History.h"

namespace sim {

// Leaves out steps and conditions, and makes pauses and amounts smaller, as long as it fails by the
// same clause. `mostPlays`: so many stories are played at most.
Story shrunk(const Story& story, const std::function<Outcome(const Story&)>& play,
             unsigned mostPlays = 1500);

}  // namespace sim
