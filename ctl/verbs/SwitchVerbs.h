// Verbs that switch virtual machines on and off.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

Exit startVms(Context& context, const Arguments& arguments);
Exit stopVms(Context& context, const Arguments& arguments);
Exit restartVms(Context& context, const Arguments& arguments);
Exit removeVms(Context& context, const Arguments& arguments);

}  // namespace ctl
