// Verbs about the switch's interfaces: which kernel device each is.
#pragma once

#include "ctl/line/Context.h"

namespace ctl {

Exit listInterfaces(Context& context, const Arguments& arguments);
Exit setInterface(Context& context, const Arguments& arguments);
Exit unsetInterface(Context& context, const Arguments& arguments);

}  // namespace ctl
