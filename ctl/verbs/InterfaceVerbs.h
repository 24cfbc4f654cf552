// Verbs about the switch's interfaces: which kernel device each is.
#pragma once

#include <vector>

#include "ctl/line/Context.h"

namespace ctl {

Exit listInterfaces(Context& context, const Arguments& arguments);
Exit setInterface(Context& context, const Arguments& arguments);
Exit unsetInterface(Context& context, const Arguments& arguments);

// What is wrong with an interface that is that device; empty: nothing.
std::vector<rt::String> interfaceProblems(const rt::String& id, const rt::String& device);

}  // namespace ctl
