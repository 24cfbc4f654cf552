#include "statedb/sqlite/Doorbell.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "statedb/sqlite/Sentences.h"

namespace statedb::sqlite {

namespace {

constexpr mode_t readAndWrite = 0666;
constexpr int notABell = EEXIST;

}  // namespace

Doorbell::Doorbell(const rt::String& file) : file_(file), bell_(file + "-bell") {}

void Doorbell::make() const {
  struct stat database {};
  if (stat(file_.charPtr(), &database) != 0) return;
  const rt::Descriptor bell(open(bell_.charPtr(),
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                 database.st_mode & readAndWrite));
  if (bell) fchmod(bell.number(), database.st_mode & readAndWrite);
}

// 0, or why not.
int Doorbell::ringOnce() const noexcept {
  const rt::Descriptor bell(open(bell_.charPtr(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!bell) return errno;
  struct stat facts {};
  const bool isBell = fstat(bell.number(), &facts) == 0 && S_ISREG(facts.st_mode);
  return isBell ? 0 : notABell;
}

void Doorbell::ring() const noexcept {
  const int error = ringOnce();
  // A pipe, a socket, a link, a directory.
  const bool isStrange = error == notABell || error == ENXIO || error == ELOOP || error == EISDIR;
  if (!isStrange && error != ENOENT) return;
  if (isStrange) (void)std::remove(bell_.charPtr());
  make();
  (void)ringOnce();
}

int Doorbell::listen() {
  if (!inotify_) watch();
  rt::Descriptor descriptor = rt::copyOf(inotify_);
  if (!descriptor) throw fromErrno(file_, errno, "it could not be watched");
  return descriptor.release();
}

// The directory and not the files: they may be made anew, and the end of one would end its watch.
// That the database itself is replaced or removed is told as well, and that the directory is.
void Doorbell::watch() {
  rt::Descriptor inotify(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  if (!inotify) throw fromErrno(file_, errno, "it could not be watched");
  constexpr uint32_t events = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE |
                              IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
  if (inotify_add_watch(inotify.number(), directoryOf(file_).charPtr(), events) < 0) {
    const int error = errno;
    throw error == ENOSPC
        ? failed(file_, "no inotify watch is left: raise fs.inotify.max_user_watches")
        : fromErrno(file_, error, "its directory could not be watched");
  }
  inotify_ = std::move(inotify);
}

void Doorbell::silence() const {
  if (!inotify_) return;
  alignas(inotify_event) char events[16 * 1024];
  while (read(inotify_.number(), events, sizeof events) > 0) continue;
}

}  // namespace statedb::sqlite
