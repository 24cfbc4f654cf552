// What happens to a machine in some minutes, all of it known before the first.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sim/story/Conditions.h"
#include "sim/story/Step.h"

namespace sim {

// How a machine stands when a story begins.
enum class Beginning : uint8_t {
  empty,    // a daemon, no VM
  running,  // two VMs with cards run
  adopted,  // the same, under a daemon that has taken them up
};
inline constexpr size_t beginningCount = 3;
std::string_view wordOf(Beginning beginning);

// Each step stands by itself: any of them may be left out.
struct Story {
  uint64_t seed = 0;  // decides what is left to chance while it is played
  Beginning beginning = Beginning::empty;
  Conditions conditions;
  std::vector<Step> steps;
};

// What that seed draws; of so many steps.
Story storyOf(uint64_t seed, size_t steps = 60);

// One line, as "seed=7 running deathGap=300: +0ms add vm1 2; +12ms kill-daemon", and back; throws
// std::invalid_argument. What follows a # is left out.
std::string toText(const Story& story);
Story storyFromText(std::string_view text);

}  // namespace sim
