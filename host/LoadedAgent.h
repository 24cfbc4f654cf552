// The agent, and the records that it works on.
#pragma once

#include "host/Plugin.h"
#include "runtime/records/Bridging.h"
#include "runtime/records/Interface.h"
#include "runtime/records/KernelNetInfo.h"
#include "runtime/records/VmConfig.h"
#include "runtime/records/VmStatus.h"

namespace host {

// Begins on an empty configuration, and ends no guest when it goes. Whatever is told of these
// records by machines of the host's must have gone before.
class LoadedAgent {
 public:
  LoadedAgent();  // throws Exception when the module cannot be loaded
  LoadedAgent(const LoadedAgent&) = delete;
  ~LoadedAgent();

  const Vm::Config::Ptr config = rt::make<Vm::Config>();
  const Vm::Status::Ptr status = rt::make<Vm::Status>();
  const Interface::AllIntfStatusDir::Ptr allIntfStatusDir = rt::make<Interface::AllIntfStatusDir>();
  const Interface::AllIntfStatusLocalDir::Ptr localDir =
      rt::make<Interface::AllIntfStatusLocalDir>();
  const Interface::DeviceIntfStatusDir::Ptr present = rt::make<Interface::DeviceIntfStatusDir>();
  const KernelNetInfo::Status::Ptr kernel = rt::make<KernelNetInfo::Status>();
  const Bridging::Input::Config::Ptr bridging = rt::make<Bridging::Input::Config>();
  const Vm::Root::Ptr root = loadAgent(agentModule);
};

}  // namespace host
