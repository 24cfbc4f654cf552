// Processes that sleep until something changes.
#pragma once

#include <vector>

namespace sim {

class Process;

// Part of whatever can change. A process may sleep on many; the scheduler takes it off all of them.
class WaitQueue {
 public:
  WaitQueue() = default;
  WaitQueue(const WaitQueue&) = delete;
  ~WaitQueue();

  void add(Process& process) { sleepers_.push_back(&process); }
  void remove(Process& process);
  // All that sleep here look again.
  void wake();

 private:
  std::vector<Process*> sleepers_;
};

}  // namespace sim
