// Verbs that show virtual machines.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

Exit listVms(Context& context, const Arguments& arguments);
Exit showVm(Context& context, const Arguments& arguments);
// Exit::done when the VM is as it is wanted, Exit::failed when not; of its own troubles, others.
Exit tellWhy(Context& context, const Arguments& arguments);

}  // namespace ctl
