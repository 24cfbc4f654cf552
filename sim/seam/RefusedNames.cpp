// What no program does in a world yet: it says so, and its name. And what is only another name.
#include <fcntl.h>
#include <netdb.h>
#include <sched.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>
#include <utime.h>

#include <cstring>
#include <ctime>

#include "sim/seam/Name.h"

namespace {

using namespace sim;

int refuse(const char* what) {
  machine().fail("unknown call", what, "the model has no such call");
  errno = ENOSYS;
  return -1;
}

}  // namespace

extern "C" {

int simSpawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
             const posix_spawnattr_t* attributes, char* const* arguments,
             char* const* environment) asm("posix_spawn");
int simSpawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
             const posix_spawnattr_t* attributes, char* const* arguments,
             char* const* environment) {
  static constinit Name name("posix_spawn");
  if (inWorld()) return refuse("posix_spawn");
  return name.library(&simSpawn)(pid, path, actions, attributes, arguments, environment);
}
int simSpawnFound(pid_t* pid, const char* file, const posix_spawn_file_actions_t* actions,
                  const posix_spawnattr_t* attributes, char* const* arguments,
                  char* const* environment) asm("posix_spawnp");
int simSpawnFound(pid_t* pid, const char* file, const posix_spawn_file_actions_t* actions,
                  const posix_spawnattr_t* attributes, char* const* arguments,
                  char* const* environment) {
  static constinit Name name("posix_spawnp");
  if (inWorld()) return refuse("posix_spawnp");
  return name.library(&simSpawnFound)(pid, file, actions, attributes, arguments, environment);
}

char* simMakeTemporaryDirectory(char* path) asm("mkdtemp");
char* simMakeTemporaryDirectory(char* path) {
  static constinit Name name("mkdtemp");
  if (!inWorld()) return name.library(&simMakeTemporaryDirectory)(path);
  refuse("mkdtemp");
  return nullptr;
}

int simResizePath(const char* path, off_t size) asm("truncate");
int simResizePath(const char* path, off_t size) {
  static constinit Name name("truncate");
  return inWorld() ? refuse("truncate") : name.library(&simResizePath)(path, size);
}
int simTouch(const char* path, const utimbuf* times) asm("utime");
int simTouch(const char* path, const utimbuf* times) {
  static constinit Name name("utime");
  return inWorld() ? refuse("utime") : name.library(&simTouch)(path, times);
}
int simTouchAt(int from, const char* path, const timespec* times, int flags) asm("utimensat");
int simTouchAt(int from, const char* path, const timespec* times, int flags) {
  static constinit Name name("utimensat");
  return inWorld() ? refuse("utimensat") : name.library(&simTouchAt)(from, path, times, flags);
}
ssize_t simSendFile(int to, int from, off_t* at, size_t size) asm("sendfile");
ssize_t simSendFile(int to, int from, off_t* at, size_t size) {
  static constinit Name name("sendfile");
  return inWorld() ? refuse("sendfile") : name.library(&simSendFile)(to, from, at, size);
}
int simMakeMemory(const char* what, unsigned flags) asm("memfd_create");
int simMakeMemory(const char* what, unsigned flags) {
  static constinit Name name("memfd_create");
  return inWorld() ? refuse("memfd_create") : name.library(&simMakeMemory)(what, flags);
}
void* simMap(void* at, size_t size, int protection, int flags, int number,
             off_t from) asm("mmap64");
void* simMap(void* at, size_t size, int protection, int flags, int number, off_t from) {
  static constinit Name name("mmap64");
  if (inWorld() && number >= 0) refuse("mmap64");
  return name.library(&simMap)(at, size, protection, flags, number, from);
}
void* simMapOld(void* at, size_t size, int protection, int flags, int number,
                off_t from) asm("mmap");
void* simMapOld(void* at, size_t size, int protection, int flags, int number, off_t from) {
  return simMap(at, size, protection, flags, number, from);
}
int simAddresses(const char* host, const char* service, const addrinfo* hints,
                 addrinfo** found) asm("getaddrinfo");
int simAddresses(const char* host, const char* service, const addrinfo* hints, addrinfo** found) {
  static constinit Name name("getaddrinfo");
  if (inWorld()) return refuse("getaddrinfo");
  return name.library(&simAddresses)(host, service, hints, found);
}

[[noreturn]] void simAssertFailed(const char* what, const char* file, unsigned line,
                                  const char* function) asm("__assert_fail");
[[noreturn]] void simAssertFailed(const char* what, const char* file, unsigned line,
                                  const char* function) {
  static constinit Name name("__assert_fail");
  if (inWorld()) machine().fail("abort", machine().scheduler.current()->name, what);
  name.library (&simAssertFailed)(what, file, line, function);
  __builtin_trap();
}

ssize_t simReadAt64(int number, void* to, size_t size, off_t at) asm("pread64");
ssize_t simReadAt64(int number, void* to, size_t size, off_t at) {
  return ::pread(number, to, size, at);
}
ssize_t simWriteAt64(int number, const void* from, size_t size, off_t at) asm("pwrite64");
ssize_t simWriteAt64(int number, const void* from, size_t size, off_t at) {
  return ::pwrite(number, from, size, at);
}
int simResize64(int number, off_t size) asm("ftruncate64");
int simResize64(int number, off_t size) { return ::ftruncate(number, size); }

ssize_t simWritePieces(int number, const iovec* pieces, int count) asm("writev");
ssize_t simWritePieces(int number, const iovec* pieces, int count) {
  static constinit Name name("writev");
  if (!inWorld()) return name.library(&simWritePieces)(number, pieces, count);
  std::string all;
  for (int i = 0; i < count; ++i)
    all.append(static_cast<const char*>(pieces[i].iov_base), pieces[i].iov_len);
  return ::write(number, all.data(), all.size());
}

int simYield() asm("sched_yield");
int simYield() {
  static constinit Name name("sched_yield");
  if (!inWorld()) return name.library(&simYield)();
  machine().scheduler.yield();
  return 0;
}

// Where the machine stands is nothing to a world.
time_t simMakeTime(tm* parts) asm("mktime");
time_t simMakeTime(tm* parts) {
  static constinit Name name("mktime");
  return inWorld() ? timegm(parts) : name.library(&simMakeTime)(parts);
}
tm* simLocalTime(const time_t* time, tm* to) asm("localtime_r");
tm* simLocalTime(const time_t* time, tm* to) {
  static constinit Name name("localtime_r");
  return inWorld() ? gmtime_r(time, to) : name.library(&simLocalTime)(time, to);
}

}  // extern "C"
