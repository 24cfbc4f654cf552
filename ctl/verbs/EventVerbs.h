// Verbs that tell what has happened.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

// Of all VMs; with -f, ends when nobody reads its output any more.
Exit showEvents(Context& context, const Arguments& arguments);
// Of one.
Exit showHistory(Context& context, const Arguments& arguments);

}  // namespace ctl
