// The verb that waits for what somebody else asked for.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

Exit waitForVm(Context& context, const Arguments& arguments);

}  // namespace ctl
