#include "host/Plugin.h"

#include <dlfcn.h>

namespace host {

Vm::Root::Ptr loadAgent(const rt::String& module) {
  void* const handle = dlopen(module.charPtr(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) throw rt::Exception(rt::String("the agent cannot be loaded: ") + dlerror());
  const auto factory = reinterpret_cast<Vm::RootFactory>(dlsym(handle, Vm::rootFactorySymbol));
  if (!factory)
    throw rt::Exception("the agent cannot be loaded: " + module + " is no agent: it has no " +
                        Vm::rootFactorySymbol);
  Vm::Root::Ptr root;
  factory("vmagentd", &root);
  return root;
}

}  // namespace host
