// The agent, loaded.
#pragma once

#include "Vm/VmAgent/VmRoot.h"

namespace host {

// The root of the agent module, which stays loaded for good: its types are registered. Throws
// Exception, naming the module, when it cannot be loaded.
Vm::Root::Ptr loadAgent(const rt::String& module);

// Found in the library path of this program.
inline constexpr const char* agentModule = "VmAgent.so";

}  // namespace host
