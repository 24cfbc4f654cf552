// Libraries that programs load, and what nobody does in a world.
#include <dlfcn.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mount.h>

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

int simMount(const char* what, const char* where, const char* type, unsigned long flags,
             const void* data) asm("mount");
int simMount(const char* what, const char* where, const char* type, unsigned long flags,
             const void* data) {
  static constinit Name name("mount");
  if (!inWorld()) return name.library(&simMount)(what, where, type, flags, data);
  return refuse("mount");
}
int simUnmount(const char* where, int flags) asm("umount2");
int simUnmount(const char* where, int flags) {
  static constinit Name name("umount2");
  if (!inWorld()) return name.library(&simUnmount)(where, flags);
  return refuse("umount2");
}
int simUnshare(int flags) asm("unshare");
int simUnshare(int flags) {
  static constinit Name name("unshare");
  if (!inWorld()) return name.library(&simUnshare)(flags);
  return refuse("unshare");
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
