#include "statedb/OwnerLock.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "runtime/base/Format.h"
#include "runtime/base/OwnFile.h"
#include "runtime/base/Text.h"

namespace statedb {

namespace {

constexpr mode_t ownersMode = 0600;

// Locks of the process, not of the open file: that a forked child would share until its exec, and
// so outlive us with it.
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

// The process that holds it; 0 when nobody does.
pid_t holderOf(int descriptor) {
  auto lock = wholeFile();
  return fcntl(descriptor, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK ? lock.l_pid : 0;
}

}  // namespace

OwnerLock::OwnerLock(const rt::String& file)
    : descriptor_(rt::openOwnFile(AT_FDCWD, file.charPtr(), O_RDWR, ownersMode)) {
  if (!descriptor_) throw trouble(file, errno);
  auto lock = wholeFile();
  if (fcntl(descriptor_.number(), F_SETLK, &lock) != 0) {
    const int error = errno;
    const pid_t holder = holderOf(descriptor_.number());
    if (error != EAGAIN && error != EACCES) throw trouble(file, error);
    // Whose processes are not ours to see is nobody.
    const rt::String who = holder > 0 ? "process " + rt::toText(holder) : "in another container";
    throw Error(Trouble::locked, "another daemon runs already (" + who + "): it holds " + file);
  }
  const rt::String pid = rt::toText(getpid()) + "\n";
  // Only for people to read: without it the lock holds as well.
  (void)!ftruncate(descriptor_.number(), 0);
  (void)!pwrite(descriptor_.number(), pid.charPtr(), pid.size(), 0);
}

rt::String ownerLockFile(const rt::String& directory) { return directory + "/vmagentd.lock"; }

}  // namespace statedb
