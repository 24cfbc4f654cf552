// Libraries that programs load, and what nobody does in a world.
#include <dlfcn.h>
#include <pthread.h>

#include <string>

#include "sim/seam/Name.h"

namespace {

using namespace sim;

int refuse(const char* what) {
  machine().fail("unknown call", what, "nobody does that in a world");
  errno = ENOSYS;
  return -1;
}

}  // namespace

extern "C" {

void* simLoad(const char* library, int flags) asm("dlopen");
void* simLoad(const char* library, int flags) {
  static constinit Name name("dlopen");
  if (!inWorld()) return name.library(&simLoad)(library, flags);
  // The agent's module is part of this program.
  if (library && std::string(library).find("VmAgent.so") != std::string::npos)
    return name.library(&simLoad)(nullptr, flags);
  return nullptr;
}

using ThreadBody = void* (*)(void*);
int simThread(pthread_t* thread, const pthread_attr_t* how, ThreadBody body,
              void* argument) asm("pthread_create");
int simThread(pthread_t* thread, const pthread_attr_t* how, ThreadBody body, void* argument) {
  static constinit Name name("pthread_create");
  if (!inWorld()) return name.library(&simThread)(thread, how, body, argument);
  return refuse("pthread_create");
}

}  // extern "C"
