#include "statedb/OwnerLock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "runtime/base/Format.h"
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

// A file that nobody else made, and that has no other name: by that another could be meant, and
// what we write would go there.
bool isOurs(int descriptor) {
  struct stat facts {};
  return fstat(descriptor, &facts) == 0 && S_ISREG(facts.st_mode) && facts.st_uid == geteuid() &&
         facts.st_nlink == 1;
}

// Throws.
int openOurs(const rt::String& file) {
  for (int left = 3;; --left) {
    const int found =
        open(file.charPtr(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, ownersMode);
    const bool isStrange = found >= 0 ? !isOurs(found) : errno == ELOOP;
    const int error = found >= 0 ? EPERM : errno;
    if (found >= 0 && !isStrange) {
      (void)fchmod(found, ownersMode);  // one of an earlier version could be read by all
      return found;
    }
    if (found >= 0) close(found);
    if (left == 0 || !isStrange || unlink(file.charPtr()) != 0) throw trouble(file, error);
  }
}

}  // namespace

OwnerLock::OwnerLock(const rt::String& file) : descriptor_(openOurs(file)) {
  auto lock = wholeFile();
  if (fcntl(descriptor_, F_SETLK, &lock) != 0) {
    const int error = errno;
    const pid_t holder = holderOf(descriptor_);
    close(descriptor_);
    if (error != EAGAIN && error != EACCES) throw trouble(file, error);
    throw Error(Trouble::locked, "another daemon runs already (process " + rt::toText(holder) +
                                     "): it holds " + file);
  }
  const rt::String pid = rt::toText(getpid()) + "\n";
  // Only for people to read: without it the lock holds as well.
  (void)!ftruncate(descriptor_, 0);
  (void)!pwrite(descriptor_, pid.charPtr(), pid.size(), 0);
}

OwnerLock::~OwnerLock() { close(descriptor_); }

rt::String ownerLockFile(const rt::String& runDir) { return runDir + "/vmagentd.lock"; }

}  // namespace statedb
