// The calls about descriptors themselves, and the locks on what they stand for.
#include <sys/file.h>
#include <unistd.h>

#include <climits>

#include "sim/kernel/InodeFile.h"
#include "sim/kernel/calls/Common.h"
#include "sim/kernel/calls/FileCalls.h"

namespace sim::sys {

namespace {

FileLocks::Range rangeOf(const struct flock& asked) {
  const off_t begin = asked.l_start;  // only from the begin is asked for
  return {begin, asked.l_len == 0 ? LONG_MAX : begin + asked.l_len, asked.l_type, &self()};
}

Result testLock(Inode& inode, struct flock& asked) {
  const auto conflict = inode.locks.conflict(rangeOf(asked));
  if (!conflict) {
    asked.l_type = F_UNLCK;
    return 0;
  }
  asked.l_type = conflict->type;
  asked.l_whence = SEEK_SET;
  asked.l_start = conflict->begin;
  asked.l_len = conflict->end == LONG_MAX ? 0 : conflict->end - conflict->begin;
  asked.l_pid = conflict->owner->pid;
  return 0;
}

Result setLock(Inode& inode, const struct flock& asked, bool waits) {
  const FileLocks::Range wanted = rangeOf(asked);
  while (wanted.type != F_UNLCK && inode.locks.conflict(wanted)) {
    if (!waits) return -EAGAIN;
    if (machine().scheduler.sleep({&inode.locks.freed}, never, "fcntl") == Sleep::End::interrupted)
      return -EINTR;
  }
  inode.locks.set(wanted);
  return 0;
}

Result controlLock(const FilePtr& file, int command, struct flock* asked) {
  const InodePtr inode = file->inode();
  if (!inode || !asked) return -EINVAL;
  const int access = file->flags & O_ACCMODE;
  if (command != F_GETLK && asked->l_type == F_WRLCK && access == O_RDONLY) return -EBADF;
  if (command != F_GETLK && asked->l_type == F_RDLCK && access == O_WRONLY) return -EBADF;
  return command == F_GETLK ? testLock(*inode, *asked)
                            : setLock(*inode, *asked, command == F_SETLKW);
}

}  // namespace

Result control(int number, int command, long argument) {
  Descriptors& all = self().descriptors;
  Descriptors::Slot* const slot = all.slot(number);
  if (!slot) return -EBADF;
  const FilePtr file = slot->file;
  constexpr int changeable = O_NONBLOCK | O_APPEND;
  switch (command) {
    case F_GETFD:
      return slot->closedByExec ? FD_CLOEXEC : 0;
    case F_SETFD:
      slot->closedByExec = (argument & FD_CLOEXEC) != 0;
      return 0;
    case F_GETFL:
      return file->flags;
    case F_SETFL:
      file->flags = (file->flags & ~changeable) | (static_cast<int>(argument) & changeable);
      return 0;
    case F_DUPFD:
    case F_DUPFD_CLOEXEC:
      if (argument < 0 || argument >= all.limit) return -EINVAL;
      return all.add(file, command == F_DUPFD_CLOEXEC, static_cast<int>(argument));
    case F_GETLK:
    case F_SETLK:
    case F_SETLKW:
      return controlLock(file, command, reinterpret_cast<struct flock*>(argument));
    default:
      machine().fail("unknown call", "fcntl", "command " + std::to_string(command));
      return -EINVAL;
  }
}

Result lock(int number, int operation) {
  const FilePtr file = fileOf(number);
  if (!file) return -EBADF;
  const InodePtr inode = file->inode();
  if (!inode) return -EINVAL;
  const int kind = operation & ~LOCK_NB;
  if (kind == LOCK_UN) {
    inode->locks.drop(*file);
    return 0;
  }
  while (!inode->locks.take(*file, kind)) {
    if ((operation & LOCK_NB) != 0) return -EWOULDBLOCK;
    if (machine().scheduler.sleep({&inode->locks.freed}, never, "flock") == Sleep::End::interrupted)
      return -EINTR;
  }
  return 0;
}

Result duplicate(int number, int as) {
  const FilePtr file = fileOf(number);
  if (!file || as < 0 || as >= self().descriptors.limit) return -EBADF;
  if (number == as) return as;
  closeDescriptor(self(), as);
  self().descriptors.set(as, file, false);
  return as;
}

Result closeRange(unsigned first, unsigned last, int flags) {
  if (first > last) return -EINVAL;
  for (const int number : self().descriptors.numbers()) {
    const auto place = static_cast<unsigned>(number);
    if (place < first || place > last) continue;
    if ((static_cast<unsigned>(flags) & CLOSE_RANGE_CLOEXEC) != 0)
      self().descriptors.slot(number)->closedByExec = true;
    else
      closeDescriptor(self(), number);
  }
  return 0;
}

}  // namespace sim::sys
