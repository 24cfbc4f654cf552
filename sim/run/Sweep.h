// Every call of a program fails, or is its last, one at a time: what dice find late.
#pragma once

#include <functional>

#include "sim/run/History.h"

namespace sim {

// Short stories of one thing each.
std::vector<Story> fixedStories();
// The same with one call spoilt: of the daemon, or of a shim of vm1. `call`: of its own, from the
// story's first step on.
enum class Spoilt : uint8_t { daemonDies, daemonFails, shimDies, shimFails };
Story spoilt(const Story& story, Spoilt how, uint64_t call);

// Plays each story once for each `stride`-th of the first calls of each. Returns the number of
// those for which `play` was false.
uint64_t sweep(uint64_t stride, const std::function<bool(const Story&)>& play);

}  // namespace sim
