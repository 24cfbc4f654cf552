// Verbs that switch virtual machines on and off.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

Exit enableVms(Context& context, const Arguments& arguments);
Exit disableVms(Context& context, const Arguments& arguments);
Exit restartVms(Context& context, const Arguments& arguments);
Exit removeVms(Context& context, const Arguments& arguments);

}  // namespace ctl
