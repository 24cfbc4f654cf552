#include "statedb/OwnerLock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "runtime/base/Format.h"
#include "runtime/base/Text.h"

namespace statedb {

namespace {

// Locks of an open file, not of a process: closing another descriptor of the file keeps them.
struct flock wholeFile() {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return lock;
}

Error trouble(const rt::String& file, int error) {
  const rt::String reason = std::strerror(error);
  if (error == ENOENT)
    return {Trouble::missing, "cannot make the lock file " + file +
                                  ": its directory is missing; make it, or name another one"};
  if (error == EACCES || error == EPERM)
    return {Trouble::denied, "cannot make the lock file " + file + ": " + reason +
                                 "; run as a user who may write there"};
  if (error == EROFS)
    return {Trouble::readOnly, "cannot make the lock file " + file +
                                   ": its file system is read-only; name another directory"};
  return {Trouble::failed, "cannot lock " + file + ": " + reason};
}

// What the holder wrote there: its process id, or nothing yet.
rt::String holderOf(int descriptor) {
  char text[16];
  const ssize_t length = pread(descriptor, text, sizeof text, 0);
  rt::String pid;
  for (ssize_t i = 0; i < length && text[i] >= '0' && text[i] <= '9'; ++i) pid += text[i];
  return pid;
}

}  // namespace

OwnerLock::OwnerLock(const rt::String& file)
    : descriptor_(open(file.charPtr(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
  if (descriptor_ < 0) throw trouble(file, errno);
  auto lock = wholeFile();
  if (fcntl(descriptor_, F_OFD_SETLK, &lock) != 0) {
    const int error = errno;
    const rt::String pid = holderOf(descriptor_);
    close(descriptor_);
    if (error != EAGAIN && error != EACCES) throw trouble(file, error);
    throw Error(Trouble::locked, "another daemon runs already" +
                                     (pid.empty() ? rt::String() : " (process " + pid + ")") +
                                     ": it holds " + file);
  }
  const rt::String pid = rt::toText(getpid()) + "\n";
  // Only for people to read: without it the lock holds as well.
  (void)!ftruncate(descriptor_, 0);
  (void)!pwrite(descriptor_, pid.charPtr(), pid.size(), 0);
}

OwnerLock::~OwnerLock() { close(descriptor_); }

rt::String ownerLockFile(const rt::String& runDir) { return runDir + "/vmagentd.lock"; }

bool ownerIsAlive(const rt::String& runDir) {
  const int file = open(ownerLockFile(runDir).charPtr(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  auto lock = wholeFile();
  const bool told = fcntl(file, F_OFD_GETLK, &lock) == 0;
  close(file);
  return told && lock.l_type != F_UNLCK;
}

}  // namespace statedb
