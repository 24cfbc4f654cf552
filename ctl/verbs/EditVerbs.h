// The verb that lets a person change a virtual machine in an editor.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

Exit editVm(Context& context, const Arguments& arguments);

}  // namespace ctl
