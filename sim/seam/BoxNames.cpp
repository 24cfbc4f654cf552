// By what a process shuts itself in.
#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include "sim/kernel/calls/BoxCalls.h"
#include "sim/kernel/calls/Common.h"
#include "sim/seam/Name.h"

using namespace sim;

extern "C" {

int simMount(const char* what, const char* where, const char* type, unsigned long flags,
             const void* data) asm("mount");
int simMount(const char* what, const char* where, const char* type, unsigned long flags,
             const void* data) {
  static constinit Name name("mount");
  if (!inWorld()) return name.library(&simMount)(what, where, type, flags, data);
  return static_cast<int>(
      name.call([&] { return sys::mount(what, where, type, flags); }, where, flags));
}
int simUnmount(const char* where, int flags) asm("umount2");
int simUnmount(const char* where, int flags) {
  static constinit Name name("umount2");
  if (!inWorld()) return name.library(&simUnmount)(where, flags);
  return static_cast<int>(name.call([&] { return sys::unmount(where); }, where, flags));
}
int simUnshare(int flags) asm("unshare");
int simUnshare(int flags) {
  static constinit Name name("unshare");
  if (!inWorld()) return name.library(&simUnshare)(flags);
  return static_cast<int>(name.call([&] { return sys::unshare(flags); }, flags));
}
int simChangeDirectory(const char* path) asm("chdir");
int simChangeDirectory(const char* path) {
  static constinit Name name("chdir");
  if (!inWorld()) return name.library(&simChangeDirectory)(path);
  return static_cast<int>(name.call([&] { return sys::changeDirectory(path); }, path));
}
int simChangeRoot(const char* path) asm("chroot");
int simChangeRoot(const char* path) {
  static constinit Name name("chroot");
  if (!inWorld()) return name.library(&simChangeRoot)(path);
  return static_cast<int>(name.call([] { return sys::pivotRoot(); }, path));
}

int simGroups(size_t count, const gid_t* groups) asm("setgroups");
int simGroups(size_t count, const gid_t* groups) {
  static constinit Name name("setgroups");
  if (!inWorld()) return name.library(&simGroups)(count, groups);
  return static_cast<int>(name.call([&] { return sys::groupsAre(count); }, count));
}
int simGroup(gid_t real, gid_t effective, gid_t saved) asm("setresgid");
int simGroup(gid_t real, gid_t effective, gid_t saved) {
  static constinit Name name("setresgid");
  if (!inWorld()) return name.library(&simGroup)(real, effective, saved);
  return static_cast<int>(name.call([] { return sys::asRoot(); }, effective));
}
int simUser(uid_t real, uid_t effective, uid_t saved) asm("setresuid");
int simUser(uid_t real, uid_t effective, uid_t saved) {
  static constinit Name name("setresuid");
  if (!inWorld()) return name.library(&simUser)(real, effective, saved);
  return static_cast<int>(name.call([&] { return sys::userIs(effective); }, effective));
}
int simPriority(int which, id_t who) asm("getpriority");
int simPriority(int which, id_t who) {
  static constinit Name name("getpriority");
  if (!inWorld()) return name.library(&simPriority)(which, who);
  return static_cast<int>(name.call([&] { return sys::priorityOf(which, who); }, which, who));
}
int simLimit(int resource, rlimit* limit) asm("getrlimit");
int simLimit(int resource, rlimit* limit) {
  static constinit Name name("getrlimit");
  if (!inWorld()) return name.library(&simLimit)(resource, limit);
  const auto& limits = sys::self().limits;
  const auto own = limits.find(resource);
  *limit = own == limits.end() ? rlimit{RLIM_INFINITY, RLIM_INFINITY} : own->second;
  return static_cast<int>(name.call([]() -> Result { return 0; }, resource));
}

}  // extern "C"
