// The verb that tells the version.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

Exit showVersion(Context& context, const Arguments& arguments);

}  // namespace ctl
