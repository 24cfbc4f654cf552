// What guests may take of the machine, as the daemon says it.
#pragma once

#include <optional>

#include "ctl/machine/Doctor.h"
#include "ctl/view/VmRows.h"
#include "model/GuestMemory.h"

namespace ctl {

// Tells of a VM that is enabled, or is to be now, for whose guest there is no room as it is.
// `before`: what it was; null: there was none.
void warnOfRoom(Context& context, const VmRow* before, const Vm::VmConfig& vm,
                const model::VmOwn& own);

// How the machine's memory is divided; nothing where no daemon has said so.
std::optional<Finding> examineBudget(Context& context);

}  // namespace ctl
