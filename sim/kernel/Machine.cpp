#include "sim/kernel/Machine.h"

#include <cstdlib>

#include "sim/kernel/Furniture.h"

namespace sim {

namespace {

Machine* theMachine = nullptr;

constexpr long nanosecondsASecond = 1'000'000'000;

}  // namespace

Machine& machine() { return *theMachine; }

bool inWorld() { return theMachine && theMachine->scheduler.current(); }

timespec WallClock::timeOfDay() const {
  const Duration time = offset_ + machine().scheduler.now();
  return {static_cast<time_t>(time.count() / nanosecondsASecond),
          static_cast<long>(time.count() % nanosecondsASecond)};
}

Machine::Machine(uint64_t seed) : choices(seed), scheduler(choices) {
  if (theMachine) std::abort();
  theMachine = this;
  (void)ProductImage::fresh();
  furnish(*this);
}

Machine::~Machine() {
  scheduler.unload();
  processes.endAll();
  theMachine = nullptr;
}

void Machine::fail(const std::string& clause, const std::string& about, const std::string& text) {
  if (!verdict.failed()) verdict = {clause, about, text};
  scheduler.stop();
  if (Fiber* const running = Fiber::running()) {
    running->leave();
    std::abort();
  }
}

}  // namespace sim
