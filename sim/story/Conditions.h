// What goes wrong by itself all through a story.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace sim {

// 0 is calm: nothing of that kind.
struct Conditions {
  // The turns of processes.
  uint64_t switchOnceIn = 0;  // calls
  uint64_t priorities = 0;    // 1: the first runs, and is changed now and then
  uint64_t callTime = 0;      // microseconds; 0: one
  // Deaths: their last descriptors are closed one by one, up to so many microseconds apart.
  uint64_t deathGap = 0;
  uint64_t closesLastFirst = 0;  // once in so many deaths
  // Numbers that come again.
  uint64_t processNumbers = 0;  // so many there are; 0: 30,000
  uint64_t sameIndexes = 0;     // of network devices
  // What comes late, up to so many milliseconds.
  uint64_t newsDelay = 0;    // of network devices
  uint64_t nodeDelay = 0;    // of taps
  uint64_t nodeMissing = 0;  // once in so many taps
  // Calls of the daemon and of shims that fail, once in so many.
  uint64_t noDescriptor = 0;
  uint64_t noMemory = 0;
  uint64_t noProcess = 0;
  uint64_t diskErrors = 0;
  uint64_t interrupted = 0;
  uint64_t oldKernel = 0;  // 1: epoll_pwait2, openat2 and pidfd_open are not there

  friend bool operator==(const Conditions&, const Conditions&) = default;
};

struct ConditionKind {
  std::string_view word;
  uint64_t Conditions::*value;
  uint64_t least;  // when it is on
  uint64_t most;
};
const std::array<ConditionKind, 16>& conditionKinds();

// As "deathGap=300 newsDelay=20", and back; throws std::invalid_argument.
std::string toText(const Conditions& conditions);
void addCondition(Conditions& conditions, std::string_view text);

}  // namespace sim
