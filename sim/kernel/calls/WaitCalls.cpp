#include "sim/kernel/calls/WaitCalls.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>

#include "sim/kernel/Epoll.h"
#include "sim/kernel/Inotify.h"
#include "sim/kernel/SmallFiles.h"
#include "sim/kernel/calls/Common.h"

namespace sim::sys {

namespace {

Time deadlineIn(Duration time) { return time == never ? never : machine().now() + time; }

// Those of what was polled that are ready.
int look(pollfd* polled, size_t count) {
  int ready = 0;
  for (size_t i = 0; i < count; ++i) {
    pollfd& each = polled[i];
    each.revents = 0;
    if (each.fd < 0) continue;
    const FilePtr file = fileOf(each.fd);
    constexpr short always = POLLERR | POLLHUP;
    each.revents =
        file ? static_cast<short>(file->ready() & (each.events | always)) : short{POLLNVAL};
    if (each.revents != 0) ++ready;
  }
  return ready;
}

std::shared_ptr<EpollFile> epollFile(int number) {
  return std::dynamic_pointer_cast<EpollFile>(fileOf(number));
}

}  // namespace

namespace {

Result waitFor(pollfd* polled, size_t count, Duration time) {
  const Time deadline = deadlineIn(time);
  while (true) {
    if (const int ready = look(polled, count)) return ready;
    if (deadline <= machine().now()) return 0;
    std::vector<WaitQueue*> queues;
    for (size_t i = 0; i < count; ++i)
      if (const FilePtr file = polled[i].fd < 0 ? nullptr : fileOf(polled[i].fd))
        file->queues(queues);
    if (machine().scheduler.sleep(queues, deadline, "poll") == Sleep::End::interrupted)
      return -EINTR;
  }
}

// Leaves one of them in the set when it has one of those events.
int keep(fd_set* set, const pollfd& polled, int events) {
  if (!set || !FD_ISSET(polled.fd, set)) return 0;
  if ((polled.revents & events) != 0) return 1;
  FD_CLR(polled.fd, set);
  return 0;
}

}  // namespace

Result poll(pollfd* polled, size_t count, Duration time) {
  if (static_cast<int>(count) > self().descriptors.limit) return -EINVAL;
  return waitFor(polled, count, time);
}

// An end can be read, and a writer without a reader can be written to, to learn of it.
Result select(int end, fd_set* readable, fd_set* writable, Duration time) {
  std::vector<pollfd> polled;
  for (int i = 0; i < end; ++i) {
    const bool isRead = readable && FD_ISSET(i, readable);
    const bool isWritten = writable && FD_ISSET(i, writable);
    if (!isRead && !isWritten) continue;
    if (!fileOf(i)) return -EBADF;
    polled.push_back({i, static_cast<short>((isRead ? POLLIN : 0) | (isWritten ? POLLOUT : 0)), 0});
  }
  const Result ready = waitFor(polled.data(), polled.size(), time);
  if (ready < 0) return ready;
  int kept = 0;
  for (const pollfd& each : polled)
    kept +=
        keep(readable, each, POLLIN | POLLHUP | POLLERR) + keep(writable, each, POLLOUT | POLLERR);
  return kept;
}

Result epollCreate(int flags) {
  const auto file = std::make_shared<EpollFile>();
  file->flags = O_RDWR;
  return addDescriptor(file, (flags & EPOLL_CLOEXEC) != 0 ? O_CLOEXEC : 0);
}

Result epollControl(int number, int operation, int about, const epoll_event* event) {
  const FilePtr file = fileOf(about);
  if (!fileOf(number) || !file) return -EBADF;
  if (!file->canBeWatched()) return -EPERM;
  const auto epoll = epollFile(number);
  if (!epoll || epoll == file) return -EINVAL;
  return epoll->control(operation, about, file, event ? *event : epoll_event{});
}

Result epollWait(int number, epoll_event* events, int most, Duration time) {
  const auto epoll = epollFile(number);
  if (!epoll) return fileOf(number) ? -EINVAL : -EBADF;
  if (most <= 0) return -EINVAL;
  const Time deadline = deadlineIn(time);
  while (true) {
    if (const int ready = epoll->collect(events, most)) return ready;
    if (deadline <= machine().now()) return 0;
    if (sleepOn({epoll.get()}, deadline, "epoll_wait") == Sleep::End::interrupted) return -EINTR;
  }
}

Result signalFile(int number, const sigset_t& set, int flags) {
  if (number >= 0) {
    const auto file = std::dynamic_pointer_cast<SignalFile>(fileOf(number));
    if (!file) return fileOf(number) ? -EINVAL : -EBADF;
    file->setIs(set);
    return number;
  }
  const auto file = std::make_shared<SignalFile>(set);
  file->flags = O_RDWR | ((flags & SFD_NONBLOCK) != 0 ? O_NONBLOCK : 0);
  return addDescriptor(file, (flags & SFD_CLOEXEC) != 0 ? O_CLOEXEC : 0);
}

Result eventFile(unsigned count, int flags) {
  const auto file = std::make_shared<EventFile>(count);
  file->flags = O_RDWR | ((flags & EFD_NONBLOCK) != 0 ? O_NONBLOCK : 0);
  return addDescriptor(file, (flags & EFD_CLOEXEC) != 0 ? O_CLOEXEC : 0);
}

Result inotifyCreate(int flags) {
  const auto file = std::make_shared<InotifyFile>();
  if ((flags & IN_NONBLOCK) != 0) file->flags = O_NONBLOCK;
  return addDescriptor(file, (flags & IN_CLOEXEC) != 0 ? O_CLOEXEC : 0);
}

Result inotifyWatch(int number, const char* path, unsigned mask) {
  const auto file = std::dynamic_pointer_cast<InotifyFile>(fileOf(number));
  if (!file) return fileOf(number) ? -EINVAL : -EBADF;
  const Found found = machine().files.find(
      path, self().directory, (mask & IN_DONT_FOLLOW) != 0 ? LastLink::kept : LastLink::followed);
  if (found.error) return found.error;
  return found.inode ? file->watch(found.inode, mask) : -ENOENT;
}

Result inotifyUnwatch(int number, int watch) {
  const auto file = std::dynamic_pointer_cast<InotifyFile>(fileOf(number));
  if (!file) return fileOf(number) ? -EINVAL : -EBADF;
  return file->unwatch(watch);
}

Result pause(Duration time) {
  return machine().scheduler.sleep({}, deadlineIn(time), "sleep") == Sleep::End::interrupted
             ? -EINTR
             : 0;
}

Result waitForSignal(const sigset_t& set, Duration time, SignalInfo& info) {
  const Time deadline = deadlineIn(time);
  while (true) {
    if (const auto came = self().signals.take(set)) {
      info = *came;
      return info.number;
    }
    if (deadline <= machine().now()) return -EAGAIN;
    if (machine().scheduler.sleep({&self().signals.came}, deadline, "sigtimedwait") ==
        Sleep::End::interrupted)
      return -EINTR;
  }
}

}  // namespace sim::sys
