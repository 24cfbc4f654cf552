// What time it is.
#pragma once

#include <cstdint>

namespace host {

// Seconds since 1970. May jump.
uint64_t timeOfDay();
uint64_t timeOfDayInMilliseconds();
// Milliseconds since the machine was booted. Only grows, also while the machine sleeps.
uint64_t timeSinceBoot();

}  // namespace host
