#include "host/budget/GroupValues.h"

#include "runtime/base/Text.h"

namespace host {

namespace {

// In microseconds. Short, for the thread that answers over the monitor has to wait with the
// guest's processor when its share is used up.
constexpr uint64_t period = 20'000;
// As many as the box allows its user: docs/security.md.
constexpr uint32_t mostProcesses = 512;
// Beside the daemon and the shims.
constexpr uint32_t weightOfGuests = 50;

rt::String bytesOf(uint64_t mebibytes) { return rt::toText(mebibytes << 20U); }

rt::String quotaOf(const model::Processors& processors) {
  if (processors == model::Processors()) return "max " + rt::toText(period);
  return rt::toText(processors.hundredths() * period / model::Processors::parts) + " " +
         rt::toText(period);
}

}  // namespace

std::vector<GroupValue> valuesOf(const model::VmLimits& limits, uint64_t memory) {
  return {{"memory.max", bytesOf(memory)},
          {"memory.swap.max", "0"},
          {"memory.oom.group", "1"},
          {"pids.max", rt::toText(mostProcesses)},
          {"cpu.weight", rt::toText(limits.cpuWeight())},
          {"cpu.max", quotaOf(limits.cpuMax())},
          {"io.weight", "default " + rt::toText(limits.ioWeight())}};
}

std::vector<GroupValue> weightsOfAll() {
  return {{"cpu.weight", rt::toText(weightOfGuests)},
          {"io.weight", "default " + rt::toText(weightOfGuests)}};
}

std::vector<GroupValue> valuesOfAll(uint64_t memory, const model::Processors& processors) {
  std::vector<GroupValue> values = weightsOfAll();
  values.insert(values.end(), {{"memory.max", bytesOf(memory)}, {"cpu.max", quotaOf(processors)}});
  return values;
}

}  // namespace host
