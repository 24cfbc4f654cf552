// The verb 'metrics': what is so, for Prometheus.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

Exit writeMetrics(Context& context, const Arguments& arguments);

}  // namespace ctl
