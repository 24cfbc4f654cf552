// Whose turn it is, and what time.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "sim/base/Choices.h"
#include "sim/base/Time.h"
#include "sim/kernel/Process.h"
#include "sim/kernel/Timers.h"

namespace sim {

// How it chooses among those that may run.
struct SchedulerManners {
  uint64_t switchOnceIn = 0;  // calls; 0: only where one sleeps
  // Each process has a priority, and the first runs; now and then the first becomes the last. Else
  // each is as likely.
  bool byPriority = false;
  uint64_t newPriorityOnceIn = 200;  // turns
  Duration callTime = std::chrono::microseconds(1);
};

// Time moves only when nobody can run, and by callTime at each call.
class Scheduler {
 public:
  explicit Scheduler(Choices& choices);
  Scheduler(const Scheduler&) = delete;

  Time now() const { return now_; }
  Timers& timers() { return timers_; }
  void after(Duration time, std::function<void()> action) {
    timers_.add(now_ + time, std::move(action));
  }

  // The process whose program runs; null outside of all.
  Process* current() const { return current_; }

  // Lets processes run and time pass until then. Not from within a process.
  void runUntil(Time end);
  // Until it holds, which is looked at after each turn, but at most until then; whether it did.
  bool runUntil(const std::function<bool()>& holds, Time end);

  // Nothing runs any more.
  void stop() { stopped_ = true; }
  // The product's data are as at the start of a program again.
  void unload();

  // The rest is called by the model itself.

  // It may run from now on.
  void ready(Process& process);
  // The current process sleeps until one of `queues` is woken, or that time.
  Sleep::End sleep(const std::vector<WaitQueue*>& queues, Time deadline, const char* call);
  void wake(Process& process, Sleep::End why);
  // A call of the current process: takes its time, and perhaps others' turn comes.
  void passCall();
  void yield();
  // Its parent may run again.
  void letGo(Process& child);
  // It was stopped, and is not to run until it is continued.
  void hold(Process& process);
  // It has ended, or has another program: what it ran on is kept until nobody is on it.
  void bury(Process& process);
  // It sleeps no more and waits for nothing, whatever becomes of it.
  void forget(Process& process);

  SchedulerManners manners;

 private:
  Process* pick();
  bool turn(Time end);
  void run(Process& process);
  void load(Process& process);

  Stream& choice_;
  Time now_{};
  Timers timers_;
  std::vector<Process*> ready_;
  Process* current_ = nullptr;
  Process* loaded_ = nullptr;  // whose data are in place
  bool stopped_ = false;
  char** const environment_;  // of this program
  std::vector<std::shared_ptr<Fiber>> buried_;
};

}  // namespace sim
