// What stands in the files of control groups.
#pragma once

#include <optional>
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

// What guests' groups are called: by the VM, and by the mebibytes that its QEMU was started with,
// its reserve apart, so that who finds one knows. Pure.
rt::String groupNameOf(const rt::String& vm, uint64_t need);
struct GroupName {
  rt::String vm;
  uint64_t need = 0;
};
std::optional<GroupName> groupFrom(std::string_view name);  // nothing: it is none of ours

}  // namespace host
