// What time it is.
#pragma once

#include <cstdint>

#include "runtime/base/String.h"

namespace host {

// Seconds since 1970. May jump.
uint64_t timeOfDay();
uint64_t timeOfDayInMilliseconds();
// Milliseconds since the machine was booted. Only grows, also while the machine sleeps.
uint64_t timeSinceBoot();
// When that was: ms since 1970.
uint64_t bootedAt();
// The kernel's name of this boot, which no other has; empty: it has none.
rt::String bootId();

}  // namespace host
