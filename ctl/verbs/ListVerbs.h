// Verbs that show virtual machines.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

Exit listVms(Context& context, const Arguments& arguments);
Exit showVm(Context& context, const Arguments& arguments);

}  // namespace ctl
