// Verbs about the static MAC entries of guests.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

Exit listFdb(Context& context, const Arguments& arguments);

}  // namespace ctl
