// The verb 'top': what guests take of the machine, again and again.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

Exit showTop(Context& context, const Arguments& arguments);

}  // namespace ctl
