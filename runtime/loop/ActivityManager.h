// The loop that calls all handlers: descriptors, then the clock, one at a time, on one thread.
#pragma once

#include "runtime/base/Seconds.h"
#include "runtime/loop/ActivityLock.h"
#include "runtime/loop/Clock.h"
#include "runtime/loop/DescriptorWatcher.h"

namespace rt {

// One per process at a time, owned by main() or a test. Handlers run on the thread that made it.
class ActivityManager {
 public:
  explicit ActivityManager(Ptr<Clock> clock = make<SteadyClock>());
  ActivityManager(const ActivityManager&) = delete;
  ~ActivityManager();

  const Ptr<Clock>& clock() const { return clock_; }
  ActivityLock& lock() { return lock_; }
  DescriptorWatcher& descriptors() { return descriptors_; }

  // Waits, without the lock, until a descriptor is ready or a wake-up is due, at most for `atMost`;
  // then, with the lock, tells the descriptors' reactors and after them the clock's. An exception
  // of a handler keeps no other from being told: the first of the turn is thrown at its end.
  //
  // A turn that took over a second, or many descriptors, may have kept replies waiting in sockets
  // for longer than their time-outs: so all ready descriptors are told before any wake-up is.
  void turn(Seconds atMost = Seconds::infinity());

  // Turns until stop() is called, by a handler.
  void run();
  void stop() { stopped_ = true; }

 private:
  Seconds untilNextPass();
  void drain(FirstException& failures);

  Ptr<Clock> clock_;
  ActivityLock lock_;
  DescriptorWatcher descriptors_;
  bool longTurn_ = false;  // the one before this
  bool stopped_ = false;
};

// The process's activity manager; there must be one.
ActivityManager& activityManager();
inline ActivityLock& activityLock() { return activityManager().lock(); }
// On the activity manager's clock.
inline Seconds currentTime() { return activityManager().clock()->now(); }

}  // namespace rt
