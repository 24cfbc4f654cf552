// The verb that tells the version.
#pragma once

#include "ctl/Context.h"

namespace ctl {

Exit showVersion(Context& context, const Arguments& arguments);

}  // namespace ctl
