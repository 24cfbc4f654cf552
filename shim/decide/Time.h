// Time in the shim.
#pragma once

#include <chrono>

namespace shim {

using Duration = std::chrono::milliseconds;
// A moment on the monotonic clock: what has passed since some start.
using Time = std::chrono::milliseconds;

}  // namespace shim
