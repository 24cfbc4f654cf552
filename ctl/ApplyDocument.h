// The document that 'vmctl apply' reads and 'vmctl export' writes.
#pragma once

#include <string_view>
#include <vector>

#include "runtime/records/VmConfig.h"

namespace ctl {

// {"version":1,"vms":[{"name":...,"config":{...}}]}, or a single one of "vms". What other verbs
// add for the reader ("status", "problem", "stale") is passed over.
struct ApplyDocument {
  std::vector<Vm::VmConfig::Ptr> vms;  // those that can be read
  std::vector<rt::String> problems;    // sentences: all that is wrong with the form
};

ApplyDocument readApplyDocument(std::string_view text);

}  // namespace ctl
