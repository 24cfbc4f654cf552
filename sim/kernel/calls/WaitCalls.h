// The calls that wait, or make something to wait for. Results are as the kernel's: -errno.
#pragma once

#include <poll.h>
#include <sys/epoll.h>
#include <sys/select.h>

#include "sim/base/Time.h"
#include "sim/kernel/File.h"
#include "sim/kernel/Signals.h"

namespace sim::sys {

// `time`: how long at most; never: without a bound.
Result poll(pollfd* polled, size_t count, Duration time);
// As poll(), of those below `end`; null: none.
Result select(int end, fd_set* readable, fd_set* writable, Duration time);
Result epollCreate(int flags);
Result epollControl(int number, int operation, int about, const epoll_event* event);
Result epollWait(int number, epoll_event* events, int most, Duration time);
Result signalFile(int number, const sigset_t& set, int flags);
Result eventFile(unsigned count, int flags);
Result inotifyCreate(int flags);
Result inotifyWatch(int number, const char* path, unsigned mask);
Result inotifyUnwatch(int number, int watch);
Result pause(Duration time);
// The number of the signal that came; -EAGAIN: none did.
Result waitForSignal(const sigset_t& set, Duration time, SignalInfo& info);

}  // namespace sim::sys
