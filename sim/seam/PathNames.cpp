// Entries of directories, and what belongs to files: modes, owners, links.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "sim/kernel/calls/Common.h"
#include "sim/kernel/calls/FileCalls.h"
#include "sim/seam/Name.h"

using namespace sim;

extern "C" {

int simMakeDirectory(const char* path, mode_t mode) asm("mkdir");
int simMakeDirectory(const char* path, mode_t mode) {
  static constinit Name name("mkdir");
  if (!inWorld()) return name.library(&simMakeDirectory)(path, mode);
  return static_cast<int>(
      name.call([&] { return sys::makeDirectory(AT_FDCWD, path, mode); }, path, mode));
}
int simMakeDirectoryAt(int from, const char* path, mode_t mode) asm("mkdirat");
int simMakeDirectoryAt(int from, const char* path, mode_t mode) {
  static constinit Name name("mkdirat");
  if (!inWorld()) return name.library(&simMakeDirectoryAt)(from, path, mode);
  return static_cast<int>(
      name.call([&] { return sys::makeDirectory(from, path, mode); }, from, path, mode));
}

int simMakeNode(const char* path, mode_t mode, dev_t device) asm("mknod");
int simMakeNode(const char* path, mode_t mode, dev_t device) {
  static constinit Name name("mknod");
  if (!inWorld()) return name.library(&simMakeNode)(path, mode, device);
  return static_cast<int>(
      name.call([&] { return sys::makeNode(path, mode, device); }, path, mode, device));
}

int simMakeLink(const char* target, const char* path) asm("symlink");
int simMakeLink(const char* target, const char* path) {
  static constinit Name name("symlink");
  if (!inWorld()) return name.library(&simMakeLink)(target, path);
  return static_cast<int>(name.call([&] { return sys::makeLink(target, path); }, target, path));
}

ssize_t simReadLink(const char* path, char* to, size_t size) asm("readlink");
ssize_t simReadLink(const char* path, char* to, size_t size) {
  static constinit Name name("readlink");
  if (!inWorld()) return name.library(&simReadLink)(path, to, size);
  return name.call([&] { return sys::readLink(path, to, size); }, path, size);
}

int simUnlink(const char* path) asm("unlink");
int simUnlink(const char* path) {
  static constinit Name name("unlink");
  if (!inWorld()) return name.library(&simUnlink)(path);
  return static_cast<int>(name.call([&] { return sys::removeEntry(AT_FDCWD, path, 0); }, path));
}
int simUnlinkAt(int from, const char* path, int flags) asm("unlinkat");
int simUnlinkAt(int from, const char* path, int flags) {
  static constinit Name name("unlinkat");
  if (!inWorld()) return name.library(&simUnlinkAt)(from, path, flags);
  return static_cast<int>(
      name.call([&] { return sys::removeEntry(from, path, flags); }, from, path, flags));
}
int simRemoveDirectory(const char* path) asm("rmdir");
int simRemoveDirectory(const char* path) {
  static constinit Name name("rmdir");
  if (!inWorld()) return name.library(&simRemoveDirectory)(path);
  return static_cast<int>(
      name.call([&] { return sys::removeEntry(AT_FDCWD, path, AT_REMOVEDIR); }, path));
}
int simRemove(const char* path) asm("remove");
int simRemove(const char* path) {
  static constinit Name name("remove");
  if (!inWorld()) return name.library(&simRemove)(path);
  const int result = simUnlink(path);
  return result != 0 && errno == EISDIR ? simRemoveDirectory(path) : result;
}

int simRename(const char* from, const char* to) asm("rename");
int simRename(const char* from, const char* to) {
  static constinit Name name("rename");
  if (!inWorld()) return name.library(&simRename)(from, to);
  return static_cast<int>(
      name.call([&] { return sys::rename(AT_FDCWD, from, AT_FDCWD, to); }, from, to));
}

int simRenameAt(int fromDirectory, const char* from, int toDirectory,
                const char* to) asm("renameat");
int simRenameAt(int fromDirectory, const char* from, int toDirectory, const char* to) {
  static constinit Name name("renameat");
  if (!inWorld()) return name.library(&simRenameAt)(fromDirectory, from, toDirectory, to);
  return static_cast<int>(
      name.call([&] { return sys::rename(fromDirectory, from, toDirectory, to); }, fromDirectory,
                from, toDirectory, to));
}

int simLink(const char* from, const char* to) asm("link");
int simLink(const char* from, const char* to) {
  static constinit Name name("link");
  if (!inWorld()) return name.library(&simLink)(from, to);
  return static_cast<int>(name.call([&] { return sys::link(from, to); }, from, to));
}

int simChangeMode(const char* path, mode_t mode) asm("chmod");
int simChangeMode(const char* path, mode_t mode) {
  static constinit Name name("chmod");
  if (!inWorld()) return name.library(&simChangeMode)(path, mode);
  return static_cast<int>(name.call([&] { return sys::modeIs(AT_FDCWD, path, mode); }, path, mode));
}
int simChangeModeAt(int from, const char* path, mode_t mode, int flags) asm("fchmodat");
int simChangeModeAt(int from, const char* path, mode_t mode, int flags) {
  static constinit Name name("fchmodat");
  if (!inWorld()) return name.library(&simChangeModeAt)(from, path, mode, flags);
  return static_cast<int>(
      name.call([&] { return sys::modeIs(from, path, mode); }, from, path, mode));
}
int simChangeFileMode(int number, mode_t mode) asm("fchmod");
int simChangeFileMode(int number, mode_t mode) {
  static constinit Name name("fchmod");
  if (!inWorld()) return name.library(&simChangeFileMode)(number, mode);
  return static_cast<int>(name.call([&] { return sys::modeOf(number, mode); }, number, mode));
}

int simChangeOwner(const char* path, uid_t user, gid_t group) asm("chown");
int simChangeOwner(const char* path, uid_t user, gid_t group) {
  static constinit Name name("chown");
  if (!inWorld()) return name.library(&simChangeOwner)(path, user, group);
  return static_cast<int>(name.call(
      [&] { return sys::ownerIs(AT_FDCWD, path, user, group, false); }, path, user, group));
}
int simChangeLinkOwner(const char* path, uid_t user, gid_t group) asm("lchown");
int simChangeLinkOwner(const char* path, uid_t user, gid_t group) {
  static constinit Name name("lchown");
  if (!inWorld()) return name.library(&simChangeLinkOwner)(path, user, group);
  return static_cast<int>(name.call([&] { return sys::ownerIs(AT_FDCWD, path, user, group, true); },
                                    path, user, group));
}
int simChangeOwnerAt(int from, const char* path, uid_t user, gid_t group,
                     int flags) asm("fchownat");
int simChangeOwnerAt(int from, const char* path, uid_t user, gid_t group, int flags) {
  static constinit Name name("fchownat");
  if (!inWorld()) return name.library(&simChangeOwnerAt)(from, path, user, group, flags);
  const bool ofLink = (flags & AT_SYMLINK_NOFOLLOW) != 0;
  return static_cast<int>(name.call([&] { return sys::ownerIs(from, path, user, group, ofLink); },
                                    from, path, user, group));
}
int simChangeFileOwner(int number, uid_t user, gid_t group) asm("fchown");
int simChangeFileOwner(int number, uid_t user, gid_t group) {
  static constinit Name name("fchown");
  if (!inWorld()) return name.library(&simChangeFileOwner)(number, user, group);
  return static_cast<int>(
      name.call([&] { return sys::ownerOf(number, user, group); }, number, user, group));
}

char* simRealPath(const char* path, char* to) asm("realpath");
char* simRealPath(const char* path, char* to) {
  static constinit Name name("realpath");
  if (!inWorld()) return name.library(&simRealPath)(path, to);
  struct stat facts {};
  const long result = name.call([&] { return sys::facts(AT_FDCWD, path, 0, facts); }, path);
  if (result != 0) return nullptr;
  // Links are left as they are: paths are only shown.
  return to ? std::strcpy(to, path) : strdup(path);
}

char* simWorkingDirectory(char* to, size_t size) asm("getcwd");
char* simWorkingDirectory(char* to, size_t size) {
  static constinit Name name("getcwd");
  if (!inWorld()) return name.library(&simWorkingDirectory)(to, size);
  return to ? std::strcpy(to, "/") : strdup("/");
}

int simMakeTemporary(char* path, int suffix, int flags) asm("mkostemps");
int simMakeTemporary(char* path, int suffix, int flags) {
  static constinit Name name("mkostemps");
  if (!inWorld()) return name.library(&simMakeTemporary)(path, suffix, flags);
  constexpr size_t placeholders = 6;
  char* const at = path + std::strlen(path) - suffix - placeholders;
  Stream& choice = machine().choices.stream("names");
  for (size_t i = 0; i < placeholders; ++i) at[i] = static_cast<char>('a' + choice.below(26));
  return static_cast<int>(name.call(
      [&] { return sys::open(AT_FDCWD, path, flags | O_RDWR | O_CREAT | O_EXCL, 0600); }, path));
}

}  // extern "C"
