// Verbs for the whole configuration as one document.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

Exit applyDocument(Context& context, const Arguments& arguments);
Exit exportVms(Context& context, const Arguments& arguments);

}  // namespace ctl
