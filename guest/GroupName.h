// What the control groups of guests are called.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace guest {

// By the VM, and by the mebibytes that its QEMU was started with, its reserve apart, so that who
// finds one knows.
std::string groupNameOf(std::string_view vm, uint64_t need);

struct GroupName {
  std::string vm;
  uint64_t need = 0;
};
std::optional<GroupName> groupFrom(std::string_view name);  // nothing: it is none of ours

}  // namespace guest
