// The verb that tells the version.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

// Of this program.
rt::String ownVersion();

Exit showVersion(Context& context, const Arguments& arguments);

}  // namespace ctl
