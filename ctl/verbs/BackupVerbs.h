// The verbs that keep the configuration as one file, and bring it back.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

Exit backUp(Context& context, const Arguments& arguments);
Exit restore(Context& context, const Arguments& arguments);

}  // namespace ctl
