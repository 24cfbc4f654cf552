// The document that 'vmctl apply' reads and 'vmctl export' writes.
#pragma once

#include <map>
#include <span>
#include <string_view>
#include <vector>

#include "model/VmOwn.h"
#include "runtime/base/Problem.h"
#include "runtime/records/VmConfig.h"

namespace ctl {

// {"version":1,"vms":[{"name":...,"config":{...},"format":"raw","limits":{...},"policy":{...}}]},
// or a single one of "vms". What other verbs add for the reader, such as "status" and "stale", is
// passed over, and so is a VM that they say is removed or unknown.
struct ApplyDocument {
  std::vector<Vm::VmConfig::Ptr> vms;        // what cannot be read of them has its default
  std::map<rt::String, rt::String> formats;  // of their disk images, by name, where they are told
  std::map<rt::String, model::VmOwn> own;    // likewise
  std::vector<rt::String> problems;          // sentences: all that is wrong with the form
  // Of these, by VM's name: the fields that cannot be read.
  std::map<rt::String, std::vector<rt::Problem>> unread;
};

ApplyDocument readApplyDocument(std::string_view text);

// What a VM may have that is for readers alone.
std::span<const std::string_view> passedOverFields();

}  // namespace ctl
