// What waits, and what is made to be waited for.
#include <poll.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/select.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "sim/kernel/calls/FileCalls.h"
#include "sim/kernel/calls/WaitCalls.h"
#include "sim/seam/Name.h"

namespace {

using namespace sim;

Duration durationOf(const timespec* time) {
  if (!time) return never;
  return std::chrono::seconds(time->tv_sec) + std::chrono::nanoseconds(time->tv_nsec);
}

Duration durationOf(int milliseconds) {
  return milliseconds < 0 ? never : Duration(std::chrono::milliseconds(milliseconds));
}

}  // namespace

extern "C" {

int simPoll(pollfd* polled, nfds_t count, int milliseconds) asm("poll");
int simPoll(pollfd* polled, nfds_t count, int milliseconds) {
  static constinit Name name("poll");
  if (!inWorld()) return name.library(&simPoll)(polled, count, milliseconds);
  return static_cast<int>(name.call(
      [&] { return sys::poll(polled, count, durationOf(milliseconds)); }, count, milliseconds));
}

int simSelect(int end, fd_set* readable, fd_set* writable, fd_set* others,
              timeval* time) asm("select");
int simSelect(int end, fd_set* readable, fd_set* writable, fd_set* others, timeval* time) {
  static constinit Name name("select");
  if (!inWorld()) return name.library(&simSelect)(end, readable, writable, others, time);
  if (others) FD_ZERO(others);
  const Duration longest =
      time ? std::chrono::seconds(time->tv_sec) + std::chrono::microseconds(time->tv_usec) : never;
  return static_cast<int>(name.call([&] { return sys::select(end, readable, writable, longest); },
                                    end, longest.count()));
}

int simEpollCreate(int flags) asm("epoll_create1");
int simEpollCreate(int flags) {
  static constinit Name name("epoll_create1");
  if (!inWorld()) return name.library(&simEpollCreate)(flags);
  return static_cast<int>(name.call([&] { return sys::epollCreate(flags); }, flags));
}
int simEpollControl(int number, int operation, int about, epoll_event* event) asm("epoll_ctl");
int simEpollControl(int number, int operation, int about, epoll_event* event) {
  static constinit Name name("epoll_ctl");
  if (!inWorld()) return name.library(&simEpollControl)(number, operation, about, event);
  return static_cast<int>(
      name.call([&] { return sys::epollControl(number, operation, about, event); }, number,
                operation, about));
}
int simEpollWait(int number, epoll_event* events, int most, int milliseconds) asm("epoll_wait");
int simEpollWait(int number, epoll_event* events, int most, int milliseconds) {
  static constinit Name name("epoll_wait");
  if (!inWorld()) return name.library(&simEpollWait)(number, events, most, milliseconds);
  return static_cast<int>(
      name.call([&] { return sys::epollWait(number, events, most, durationOf(milliseconds)); },
                number, milliseconds));
}
int simEpollWait2(int number, epoll_event* events, int most, const timespec* time,
                  const sigset_t* set) asm("epoll_pwait2");
int simEpollWait2(int number, epoll_event* events, int most, const timespec* time,
                  const sigset_t* set) {
  static constinit Name name("epoll_pwait2");
  if (!inWorld()) return name.library(&simEpollWait2)(number, events, most, time, set);
  return static_cast<int>(
      name.call([&] { return sys::epollWait(number, events, most, durationOf(time)); }, number,
                durationOf(time).count()));
}

int simSignalFile(int number, const sigset_t* set, int flags) asm("signalfd");
int simSignalFile(int number, const sigset_t* set, int flags) {
  static constinit Name name("signalfd");
  if (!inWorld()) return name.library(&simSignalFile)(number, set, flags);
  return static_cast<int>(
      name.call([&] { return sys::signalFile(number, *set, flags); }, number, flags));
}
int simEventFile(unsigned count, int flags) asm("eventfd");
int simEventFile(unsigned count, int flags) {
  static constinit Name name("eventfd");
  if (!inWorld()) return name.library(&simEventFile)(count, flags);
  return static_cast<int>(name.call([&] { return sys::eventFile(count, flags); }, count, flags));
}
int simWriteEvent(int number, eventfd_t value) asm("eventfd_write");
int simWriteEvent(int number, eventfd_t value) {
  static constinit Name name("eventfd_write");
  if (!inWorld()) return name.library(&simWriteEvent)(number, value);
  const long result =
      name.call([&] { return sys::write(number, &value, sizeof value); }, number, value);
  return result < 0 ? -1 : 0;
}
int simReadEvent(int number, eventfd_t* value) asm("eventfd_read");
int simReadEvent(int number, eventfd_t* value) {
  static constinit Name name("eventfd_read");
  if (!inWorld()) return name.library(&simReadEvent)(number, value);
  const long result = name.call([&] { return sys::read(number, value, sizeof *value); }, number);
  return result < 0 ? -1 : 0;
}

int simInotifyCreate(int flags) asm("inotify_init1");
int simInotifyCreate(int flags) {
  static constinit Name name("inotify_init1");
  if (!inWorld()) return name.library(&simInotifyCreate)(flags);
  return static_cast<int>(name.call([&] { return sys::inotifyCreate(flags); }, flags));
}
int simInotifyWatch(int number, const char* path, uint32_t mask) asm("inotify_add_watch");
int simInotifyWatch(int number, const char* path, uint32_t mask) {
  static constinit Name name("inotify_add_watch");
  if (!inWorld()) return name.library(&simInotifyWatch)(number, path, mask);
  return static_cast<int>(
      name.call([&] { return sys::inotifyWatch(number, path, mask); }, number, path, mask));
}
int simInotifyUnwatch(int number, int watch) asm("inotify_rm_watch");
int simInotifyUnwatch(int number, int watch) {
  static constinit Name name("inotify_rm_watch");
  if (!inWorld()) return name.library(&simInotifyUnwatch)(number, watch);
  return static_cast<int>(
      name.call([&] { return sys::inotifyUnwatch(number, watch); }, number, watch));
}

int simPauseMicroseconds(useconds_t time) asm("usleep");
int simPauseMicroseconds(useconds_t time) {
  static constinit Name name("usleep");
  if (!inWorld()) return name.library(&simPauseMicroseconds)(time);
  return static_cast<int>(
      name.call([&] { return sys::pause(std::chrono::microseconds(time)); }, time));
}
unsigned simPauseSeconds(unsigned time) asm("sleep");
unsigned simPauseSeconds(unsigned time) {
  static constinit Name name("sleep");
  if (!inWorld()) return name.library(&simPauseSeconds)(time);
  return name.call([&] { return sys::pause(std::chrono::seconds(time)); }, time) < 0 ? time : 0;
}
int simPause(const timespec* time, timespec* left) asm("nanosleep");
int simPause(const timespec* time, timespec* left) {
  static constinit Name name("nanosleep");
  if (!inWorld()) return name.library(&simPause)(time, left);
  return static_cast<int>(
      name.call([&] { return sys::pause(durationOf(time)); }, durationOf(time).count()));
}

int simWaitForSignal(const sigset_t* set, siginfo_t* info,
                     const timespec* time) asm("sigtimedwait");
int simWaitForSignal(const sigset_t* set, siginfo_t* info, const timespec* time) {
  static constinit Name name("sigtimedwait");
  if (!inWorld()) return name.library(&simWaitForSignal)(set, info, time);
  SignalInfo came;
  const long result = name.call([&] { return sys::waitForSignal(*set, durationOf(time), came); },
                                durationOf(time).count());
  if (result > 0 && info) {
    *info = {};
    info->si_signo = came.number;
    info->si_pid = came.sender;
  }
  return static_cast<int>(result);
}

}  // extern "C"
