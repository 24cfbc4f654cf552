#include "sim/kernel/Process.h"

#include <algorithm>

#include "sim/kernel/Machine.h"

namespace sim {

void Sleep::forget(const WaitQueue& queue) {
  queues.erase(std::remove(queues.begin(), queues.end(), &queue), queues.end());
}

void Process::wake() {
  if (state == State::sleeping) machine().scheduler.wake(*this, Sleep::End::woken);
}

}  // namespace sim
