#include "model/VmLimits.h"

#include "runtime/base/Text.h"

namespace model {

namespace {

// The kernel gives no less than a millisecond at a time.
constexpr Processors least{5};
constexpr Processors most{1024 * Processors::parts};
constexpr uint32_t mostRate = 10'000;

}  // namespace

std::optional<rt::String> weightRight(uint32_t value) {
  if (value >= leastWeight && value <= mostWeight) return std::nullopt;
  return "must be 1 to 10000; 100 is usual";
}

std::optional<rt::String> cpuMaxRight(const Processors& value) {
  if (value == Processors() || (value >= least && value <= most)) return std::nullopt;
  return "must be 0.05 to 1024 (processors), or 0 for as many as it wants";
}

std::optional<rt::String> rateLimitRight(uint32_t value) {
  if (value <= mostRate) return std::nullopt;
  return "must be 1 to 10000 (megabits a second), or 0 for all that its cards can send";
}

std::optional<rt::String> memoryReserveRight(uint32_t value, uint32_t memoryOfMachine) {
  if (value <= memoryOfMachine) return std::nullopt;
  return "must be 0 to " + rt::toText(memoryOfMachine) + " (mebibytes; this machine has no more)";
}

}  // namespace model
