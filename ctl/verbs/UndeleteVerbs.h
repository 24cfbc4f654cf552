// The verb that brings removed VMs back.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

Exit undeleteVm(Context& context, const Arguments& arguments);

}  // namespace ctl
