// The agent as a host runs it: the module, loaded by dlopen, on the seven entities that a host
// hands over. Knows nothing but the records' and the root's headers.
#pragma once

#include "tests/system/RealWorld.h"

namespace Vm::fakes {

// A new root of the module's, or null, after a test failure, when the module cannot be loaded. The
// module stays loaded: its types are registered for good.
Root::Ptr loadRoot(const rt::String& name);

class ModuleWorld : public RealWorld {
 public:
  explicit ModuleWorld(rt::Ptr<rt::Clock> clock);
};

}  // namespace Vm::fakes
