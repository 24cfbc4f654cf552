// Verbs that make a VM of another's configuration.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

Exit cloneVm(Context& context, const Arguments& arguments);
Exit renameVm(Context& context, const Arguments& arguments);

}  // namespace ctl
