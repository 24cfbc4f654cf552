// The verb 'bundle': what somebody else needs to see who is to help.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

Exit bundle(Context& context, const Arguments& arguments);

}  // namespace ctl
