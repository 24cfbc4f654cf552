// What of the machine a VM's guest may take, as an operator says it.
#pragma once

#include <vector>

#include "model/VmLimits.h"
#include "statedb/StateDb.h"

namespace ctl {

// A new record that is the same.
model::VmLimits::Ptr copyOf(const model::VmLimits& limits);
bool isSame(const model::VmLimits& a, const model::VmLimits& b);
// Whether they are what a VM has of which nobody has said any.
bool areUsual(const model::VmLimits& limits);

// The row as it was read; 0: there is none.
struct KnownLimits {
  const model::VmLimits& limits;
  uint64_t revision = 0;
};
// Adds the VM's row of vmLimits to what is written, where it is to be another: one of the usual
// limits is none.
void putLimits(statedb::Transaction& transaction, const rt::String& vm,
               const model::VmLimits& limits, const KnownLimits& known);

// Those that are not usual, such as "cpuWeight=50"; with `before`, those that differ from it.
std::vector<rt::String> limitTexts(const model::VmLimits& limits);
std::vector<rt::String> limitTexts(const model::VmLimits& limits, const model::VmLimits& before);

// R"(,"limits":{...})" for a document; empty when they are the usual ones.
rt::String limitsMember(const model::VmLimits& limits);

}  // namespace ctl
