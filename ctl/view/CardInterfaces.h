// The interfaces that virtual machines' cards are to have.
#pragma once

#include <set>

#include "ctl/view/VmRows.h"

namespace ctl {

// Those of the switch that are there, as the daemon tells; nothing while none runs.
std::optional<std::set<rt::String>> presentInterfaces(Context& context);

// Tells of each card whose interface is not there now; it may still come. Where the switch has no
// interface at all, as just after its start, there is nothing to tell a mistake by.
void warnOfInterfaces(Context& context, const Vm::VmConfig& vm);

}  // namespace ctl
