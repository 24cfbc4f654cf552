// The verb that shows what a guest and its keeper wrote.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

// With -f, ends when nobody reads its output any more.
Exit showLogs(Context& context, const Arguments& arguments);

}  // namespace ctl
