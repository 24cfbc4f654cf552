// What stands in the files of control groups.
#pragma once

#include <utility>
#include <vector>

#include "model/VmLimits.h"

namespace host {

// In its directory, and as the kernel gives it back, but for the line's end.
struct GroupValue {
  rt::String file;
  rt::String text;

  friend bool operator==(const GroupValue&, const GroupValue&) = default;
};

// What one guest may take; `memory`: mebibytes, all together. Pure.
std::vector<GroupValue> valuesOf(const model::VmLimits& limits, uint64_t memory);

// The weight of all guests beside the daemon and the shims. Pure.
std::vector<GroupValue> weightsOfAll();
// What all guests together may take; `processors`: none, as many as there are. Pure.
std::vector<GroupValue> valuesOfAll(uint64_t memory, const model::Processors& processors);

}  // namespace host
