// Verbs for shells that complete command lines.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

Exit printCompletion(Context& context, const Arguments& arguments);
// What those scripts ask for; no person does.
Exit complete(Context& context, const Arguments& arguments);

}  // namespace ctl
