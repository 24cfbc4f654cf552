#include "sim/kernel/calls/BoxCalls.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <algorithm>
#include <string>

#include "sim/kernel/calls/Common.h"

namespace sim::sys {

namespace {

Result bind(const char* what, const char* where) {
  Process& process = self();
  const Found source = machine().files.find(what, process.directory);
  if (!source.inode) return source.error != 0 ? source.error : -ENOENT;
  const Found place = machine().files.find(where, process.directory);
  if (!place.inode) return place.error != 0 ? place.error : -ENOENT;
  if (source.inode->isDirectory() != place.inode->isDirectory()) return -ENOTDIR;
  place.directory->children[place.name] = source.inode;
  return 0;
}

bool isRoot() { return self().user == 0; }

}  // namespace

Result unshare(int flags) {
  if (!isRoot()) return -EPERM;
  if ((flags & CLONE_NEWNS) != 0) self().hasOwnMounts = true;
  return 0;
}

Result mount(const char* what, const char* where, const char* type, unsigned long flags) {
  Process& process = self();
  if (!isRoot()) return -EPERM;
  if (!process.hasOwnMounts)
    machine().fail("mount", process.name, std::string("changes the machine's, at ") + where);
  if ((flags & (MS_SLAVE | MS_PRIVATE | MS_REMOUNT)) != 0) return 0;
  if ((flags & MS_BIND) != 0) return bind(what, where);
  if (!type || std::string(type) != "tmpfs" || process.draft) {
    machine().fail("unknown call", "mount", std::string(where) + ": one file system in memory");
    return -EINVAL;
  }
  process.draftPlace = where;
  process.draft = std::make_shared<Inode>(S_IFDIR | 0755U, machine().files.root()->device);
  process.draft->parent = process.draft;
  return 0;
}

// What is taken away is the old root, to which nothing leads in the model.
Result unmount(const char* where) {
  if (std::string(where) == ".") return 0;
  machine().fail("unknown call", "umount2", where);
  return -EINVAL;
}

Result changeDirectory(const char* path) {
  Process& process = self();
  if (process.draft && process.draftPlace == path) {
    process.directory = process.draft;
    return 0;
  }
  if (std::string(path) == "/") {
    process.directory = process.root ? process.root : machine().files.root();
    return 0;
  }
  machine().fail("unknown call", "chdir", path);
  return -ENOENT;
}

Result pivotRoot() {
  Process& process = self();
  if (!isRoot()) return -EPERM;
  if (!process.draft || process.directory != process.draft) return -EINVAL;
  process.root = process.draft;
  return 0;
}

Result asRoot() { return isRoot() ? 0 : -EPERM; }

Result groupsAre(size_t count) {
  if (!isRoot()) return -EPERM;
  if (count == 0) return 0;
  machine().fail("unknown call", "setgroups", "groups");
  return -EINVAL;
}

Result userIs(uid_t user) {
  Process& process = self();
  if (user == process.user) return 0;
  if (!isRoot()) return -EPERM;
  process.user = user;
  process.deathSignal = 0;
  return 0;
}

Result priorityOf(int which, unsigned who) {
  if (which != PRIO_USER) {
    machine().fail("unknown call", "getpriority", "of what is no user");
    return -EINVAL;
  }
  const auto& all = machine().processes.all();
  const bool any = std::any_of(all.begin(), all.end(),
                               [&](const auto& each) { return each.second->user == who; });
  return any ? 0 : -ESRCH;
}

}  // namespace sim::sys
