// Files by path and by descriptor.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "sim/kernel/calls/Common.h"
#include "sim/kernel/calls/FileCalls.h"
#include "sim/seam/Name.h"

namespace {

using namespace sim;

unsigned modeIn(int flags, va_list& arguments) {
  return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, unsigned) : 0U;
}

int openAt(Name& name, int from, const char* path, int flags, unsigned mode) {
  return static_cast<int>(
      name.call([&] { return sys::open(from, path, flags, mode); }, from, path, flags));
}

int factsAt(Name& name, int from, const char* path, int flags, struct stat* facts) {
  return static_cast<int>(
      name.call([&] { return sys::facts(from, path, flags, *facts); }, from, path, flags));
}

}  // namespace

extern "C" {

int simOpen(const char* path, int flags, ...) asm("open");
int simOpen(const char* path, int flags, ...) {
  static constinit Name name("open");
  va_list arguments;
  va_start(arguments, flags);
  const unsigned mode = modeIn(flags, arguments);
  va_end(arguments);
  if (!inWorld()) return name.library(&simOpen)(path, flags, mode);
  return openAt(name, AT_FDCWD, path, flags, mode);
}
int simOpen64(const char* path, int flags, ...) asm("open64");
int simOpen64(const char* path, int flags, ...) {
  static constinit Name name("open64");
  va_list arguments;
  va_start(arguments, flags);
  const unsigned mode = modeIn(flags, arguments);
  va_end(arguments);
  if (!inWorld()) return name.library(&simOpen64)(path, flags, mode);
  return openAt(name, AT_FDCWD, path, flags, mode);
}
int simOpenAt(int from, const char* path, int flags, ...) asm("openat");
int simOpenAt(int from, const char* path, int flags, ...) {
  static constinit Name name("openat");
  va_list arguments;
  va_start(arguments, flags);
  const unsigned mode = modeIn(flags, arguments);
  va_end(arguments);
  if (!inWorld()) return name.library(&simOpenAt)(from, path, flags, mode);
  return openAt(name, from, path, flags, mode);
}
int simOpenAt64(int from, const char* path, int flags, ...) asm("openat64");
int simOpenAt64(int from, const char* path, int flags, ...) {
  static constinit Name name("openat64");
  va_list arguments;
  va_start(arguments, flags);
  const unsigned mode = modeIn(flags, arguments);
  va_end(arguments);
  if (!inWorld()) return name.library(&simOpenAt64)(from, path, flags, mode);
  return openAt(name, from, path, flags, mode);
}

int simClose(int number) asm("close");
int simClose(int number) {
  static constinit Name name("close");
  if (!inWorld()) return name.library(&simClose)(number);
  return static_cast<int>(name.call([&] { return sys::close(number); }, number));
}

ssize_t simRead(int number, void* to, size_t size) asm("read");
ssize_t simRead(int number, void* to, size_t size) {
  static constinit Name name("read");
  if (!inWorld()) return name.library(&simRead)(number, to, size);
  return name.call([&] { return sys::read(number, to, size); }, number, size);
}

ssize_t simWrite(int number, const void* from, size_t size) asm("write");
ssize_t simWrite(int number, const void* from, size_t size) {
  static constinit Name name("write");
  if (!inWorld()) return name.library(&simWrite)(number, from, size);
  return name.call([&] { return sys::write(number, from, size); }, number, size);
}

ssize_t simReadAt(int number, void* to, size_t size, off_t at) asm("pread");
ssize_t simReadAt(int number, void* to, size_t size, off_t at) {
  static constinit Name name("pread");
  if (!inWorld()) return name.library(&simReadAt)(number, to, size, at);
  return name.call([&] { return sys::readAt(number, to, size, at); }, number, size, at);
}

ssize_t simWriteAt(int number, const void* from, size_t size, off_t at) asm("pwrite");
ssize_t simWriteAt(int number, const void* from, size_t size, off_t at) {
  static constinit Name name("pwrite");
  if (!inWorld()) return name.library(&simWriteAt)(number, from, size, at);
  return name.call([&] { return sys::writeAt(number, from, size, at); }, number, size, at);
}

off_t simSeek(int number, off_t offset, int whence) asm("lseek");
off_t simSeek(int number, off_t offset, int whence) {
  static constinit Name name("lseek");
  if (!inWorld()) return name.library(&simSeek)(number, offset, whence);
  return name.call([&] { return sys::seek(number, offset, whence); }, number, offset, whence);
}
off_t simSeek64(int number, off_t offset, int whence) asm("lseek64");
off_t simSeek64(int number, off_t offset, int whence) { return simSeek(number, offset, whence); }

int simResize(int number, off_t size) asm("ftruncate");
int simResize(int number, off_t size) {
  static constinit Name name("ftruncate");
  if (!inWorld()) return name.library(&simResize)(number, size);
  return static_cast<int>(name.call([&] { return sys::resize(number, size); }, number, size));
}

int simSync(int number) asm("fsync");
int simSync(int number) {
  static constinit Name name("fsync");
  if (!inWorld()) return name.library(&simSync)(number);
  return static_cast<int>(name.call([&] { return sys::synchronize(number); }, number));
}
int simSyncData(int number) asm("fdatasync");
int simSyncData(int number) {
  static constinit Name name("fdatasync");
  if (!inWorld()) return name.library(&simSyncData)(number);
  return static_cast<int>(name.call([&] { return sys::synchronize(number); }, number));
}

int simStat(const char* path, struct stat* facts) asm("stat");
int simStat(const char* path, struct stat* facts) {
  static constinit Name name("stat");
  if (!inWorld()) return name.library(&simStat)(path, facts);
  return factsAt(name, AT_FDCWD, path, 0, facts);
}
int simStat64(const char* path, struct stat* facts) asm("stat64");
int simStat64(const char* path, struct stat* facts) { return simStat(path, facts); }

int simLinkStat(const char* path, struct stat* facts) asm("lstat");
int simLinkStat(const char* path, struct stat* facts) {
  static constinit Name name("lstat");
  if (!inWorld()) return name.library(&simLinkStat)(path, facts);
  return factsAt(name, AT_FDCWD, path, AT_SYMLINK_NOFOLLOW, facts);
}
int simLinkStat64(const char* path, struct stat* facts) asm("lstat64");
int simLinkStat64(const char* path, struct stat* facts) { return simLinkStat(path, facts); }

int simStatAt(int from, const char* path, struct stat* facts, int flags) asm("fstatat");
int simStatAt(int from, const char* path, struct stat* facts, int flags) {
  static constinit Name name("fstatat");
  if (!inWorld()) return name.library(&simStatAt)(from, path, facts, flags);
  return factsAt(name, from, path, flags, facts);
}
int simStatAt64(int from, const char* path, struct stat* facts, int flags) asm("fstatat64");
int simStatAt64(int from, const char* path, struct stat* facts, int flags) {
  return simStatAt(from, path, facts, flags);
}

int simFileStat(int number, struct stat* facts) asm("fstat");
int simFileStat(int number, struct stat* facts) {
  static constinit Name name("fstat");
  if (!inWorld()) return name.library(&simFileStat)(number, facts);
  return static_cast<int>(name.call([&] { return sys::factsOf(number, *facts); }, number));
}
int simFileStat64(int number, struct stat* facts) asm("fstat64");
int simFileStat64(int number, struct stat* facts) { return simFileStat(number, facts); }

int simStatX(int from, const char* path, int flags, unsigned mask,
             struct statx* facts) asm("statx");
int simStatX(int from, const char* path, int flags, unsigned mask, struct statx* facts) {
  static constinit Name name("statx");
  if (!inWorld()) return name.library(&simStatX)(from, path, flags, mask, facts);
  struct stat found {};
  const int result = factsAt(name, from, path, flags & ~AT_STATX_SYNC_TYPE, &found);
  if (result != 0) return result;
  *facts = {};
  facts->stx_mask = STATX_BASIC_STATS;
  facts->stx_mode = static_cast<uint16_t>(found.st_mode);
  facts->stx_ino = found.st_ino;
  facts->stx_size = static_cast<uint64_t>(found.st_size);
  facts->stx_uid = found.st_uid;
  facts->stx_gid = found.st_gid;
  facts->stx_rdev_major = major(found.st_rdev);
  facts->stx_rdev_minor = minor(found.st_rdev);
  return 0;
}

int simAccess(const char* path, int mode) asm("access");
int simAccess(const char* path, int mode) {
  static constinit Name name("access");
  if (!inWorld()) return name.library(&simAccess)(path, mode);
  return static_cast<int>(name.call([&] { return sys::access(path, mode); }, path, mode));
}
int simAccessAt(int from, const char* path, int mode, int flags) asm("faccessat");
int simAccessAt(int from, const char* path, int mode, int flags) {
  static constinit Name name("faccessat");
  if (!inWorld()) return name.library(&simAccessAt)(from, path, mode, flags);
  return static_cast<int>(name.call([&] { return sys::access(path, mode); }, path, mode));
}

int simStatVfs(const char* path, struct statvfs* facts) asm("statvfs");
int simStatVfs(const char* path, struct statvfs* facts) {
  static constinit Name name("statvfs");
  if (!inWorld()) return name.library(&simStatVfs)(path, facts);
  struct stat found {};
  const int result = factsAt(name, AT_FDCWD, path, 0, &found);
  if (result != 0) return result;
  constexpr size_t blockSize = 4096;
  constexpr size_t usualRoom = size_t{1} << 34;
  *facts = {};
  facts->f_bsize = facts->f_frsize = blockSize;
  facts->f_blocks = usualRoom / blockSize;
  facts->f_bfree = facts->f_bavail =
      std::min(usualRoom, machine().files.volume(found.st_dev).room) / blockSize;
  return 0;
}

mode_t simUmask(mode_t mask) asm("umask");
mode_t simUmask(mode_t mask) {
  static constinit Name name("umask");
  if (!inWorld()) return name.library(&simUmask)(mask);
  return static_cast<mode_t>(name.call([&] { return sys::umaskIs(mask); }, mask));
}

}  // extern "C"
