// The verb that tells what keeps the machine from running guests.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

// Exit::failed when anything has failed; a warning is none.
Exit examine(Context& context, const Arguments& arguments);

}  // namespace ctl
