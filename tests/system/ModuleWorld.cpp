#include "tests/system/ModuleWorld.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <csignal>

namespace Vm::fakes {

Root::Ptr loadRoot(const rt::String& name) {
  Root::Ptr root;
  void* const module = dlopen(VMAGENT_MODULE, RTLD_NOW | RTLD_LOCAL);
  if (!module) {
    ADD_FAILURE() << dlerror();
    return root;
  }
  const auto factory = reinterpret_cast<RootFactory>(dlsym(module, rootFactorySymbol));
  if (factory)
    factory(name.charPtr(), &root);
  else
    ADD_FAILURE() << dlerror();
  return root;
}

ModuleWorld::ModuleWorld(rt::Ptr<rt::Clock> clock) : RealWorld(loadRoot, std::move(clock)) {
  // As a host does: a session may write to a QEMU that has gone.
  std::signal(SIGPIPE, SIG_IGN);
}

}  // namespace Vm::fakes
