// The verb that gives a person a guest's console.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

Exit openConsole(Context& context, const Arguments& arguments);

}  // namespace ctl
