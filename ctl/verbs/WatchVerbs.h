// The verb that shows changes as they happen.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

// Ends when nobody reads its output any more.
Exit watchVms(Context& context, const Arguments& arguments);

}  // namespace ctl
