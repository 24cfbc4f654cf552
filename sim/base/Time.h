// Time in a world, which moves only when the world lets it.
#pragma once

#include <chrono>

namespace sim {

using Duration = std::chrono::nanoseconds;
// Since the world's machine was switched on.
using Time = std::chrono::nanoseconds;

inline constexpr Time never = Time::max();

}  // namespace sim
