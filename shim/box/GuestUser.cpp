#include "shim/box/GuestUser.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <set>
#include <string>

#include "runtime/base/OwnFile.h"
#include "shim/base/Failure.h"

namespace shim {

namespace {

constexpr mode_t fileMode = 0600;

// A file of users or groups; empty when it cannot be read.
std::string textOf(const char* path) {
  const rt::Descriptor file(open(path, O_RDONLY | O_CLOEXEC));
  std::string text;
  char part[4096];
  for (ssize_t count = 0; file && (count = read(file.number(), part, sizeof part)) > 0;)
    text.append(part, static_cast<size_t>(count));
  return text;
}

// Whoever is in these files could be anybody's; who is known to a directory service only is seen
// by its processes.
std::set<unsigned> namedUsers(const guest::UserRange& range) {
  std::set<unsigned> named = guest::takenUsers(textOf("/etc/passwd"), range);
  named.merge(guest::takenUsers(textOf("/etc/group"), range));
  return named;
}

bool hasProcesses(unsigned user) {
  errno = 0;
  return getpriority(PRIO_USER, user) != -1 || errno != ESRCH;
}

}  // namespace

GuestUser::GuestUser(const Place& locks, const guest::UserRange& range)
    : locks_(rt::openOwnFile(locks.directory, locks.name.c_str(), O_RDWR, fileMode)) {
  if (!locks_) throw failureOf("the file of guests' users " + locks.path + " could not be opened");
  const std::set<unsigned> named = namedUsers(range);
  // Shims of other daemons, which share no file with us, begin elsewhere.
  const unsigned begin = static_cast<unsigned>(getpid()) % range.size();
  for (unsigned i = 0; i < range.size(); ++i) {
    const unsigned number = range.first + (begin + i) % range.size();
    if (!named.contains(number) && take(number, range)) return;
  }
  throw Failure("no user is left to run QEMU as: all of " + guest::textOf(range) +
                " are somebody's, or have processes; name others with --guest-users");
}

// In this order: whoever has the lock now has looked before us.
bool GuestUser::take(unsigned number, const guest::UserRange& range) {
  struct flock byte {};
  byte.l_type = F_WRLCK;
  byte.l_whence = SEEK_SET;
  byte.l_start = number - range.first;
  byte.l_len = 1;
  if (fcntl(locks_.number(), F_SETLK, &byte) != 0) return false;
  if (!hasProcesses(number)) {
    number_ = number;
    return true;
  }
  byte.l_type = F_UNLCK;
  (void)fcntl(locks_.number(), F_SETLK, &byte);
  return false;
}

}  // namespace shim
