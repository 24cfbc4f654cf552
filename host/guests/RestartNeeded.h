// What of a VM's configuration takes effect at its next start only.
#pragma once

#include "runtime/records/VmConfig.h"

namespace host {

// Pure: a sentence that names the fields that differ, or an empty text when none does. The switch
// does not count.
rt::String restartNeeded(const Vm::VmConfig& startedWith, const Vm::VmConfig& wanted);

}  // namespace host
