// What became of a VM's row, for people.
#pragma once

#include "runtime/records/VmConfig.h"

namespace host {

// "memory 128 -> 140, enabled false -> true, vnicConfig.nic01 added"; empty: the same.
rt::String changesText(const Vm::VmConfig& before, const Vm::VmConfig& after);

}  // namespace host
