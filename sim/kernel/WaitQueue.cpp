#include "sim/kernel/WaitQueue.h"

#include <algorithm>

#include "sim/kernel/Process.h"

namespace sim {

// Whoever sleeps here is woken, for what he waits for will never come; he finds out why.
WaitQueue::~WaitQueue() {
  const auto sleepers = std::move(sleepers_);
  sleepers_.clear();
  for (Process* const each : sleepers) {
    each->sleep.forget(*this);
    each->wake();
  }
}

void WaitQueue::remove(Process& process) {
  sleepers_.erase(std::remove(sleepers_.begin(), sleepers_.end(), &process), sleepers_.end());
}

void WaitQueue::wake() {
  std::vector<Process*> all;
  all.swap(sleepers_);
  for (Process* const each : all) each->wake();
}

}  // namespace sim
