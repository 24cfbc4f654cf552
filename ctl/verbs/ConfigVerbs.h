// Verbs that write what a virtual machine is to be.
#pragma once

#include "ctl/line/Context.h"
#include "ctl/verbs/Configuration.h"

namespace ctl {

Exit addVm(Context& context, const Arguments& arguments);
Exit setVm(Context& context, const Arguments& arguments);
Exit addNic(Context& context, const Arguments& arguments);
Exit setNic(Context& context, const Arguments& arguments);
Exit removeNic(Context& context, const Arguments& arguments);

// What a verb is to do: with --dry-run it only tells.
Configuration::Mode modeOf(const Arguments& arguments);

// For verbs that wrote something: says so when nobody carries it out.
void complainOfDelay(Context& context);

}  // namespace ctl
