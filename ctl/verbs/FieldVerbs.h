// The verbs that tell which fields a VM has.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

Exit listFields(Context& context, const Arguments& arguments);
Exit printSchema(Context& context, const Arguments& arguments);

}  // namespace ctl
