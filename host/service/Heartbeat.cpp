#include "host/service/Heartbeat.h"

#include "host/service/Supervision.h"

namespace host {

Heartbeat::Heartbeat(rt::Clock::Ptr clock) : clock_(*this, std::move(clock)) {
  handleInitialized();
}

void Heartbeat::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
}

// The first call comes with the loop's first turn.
void Heartbeat::handleClock() {
  const auto interval = aliveInterval();
  if (!interval) return;
  notifyAlive();
  clock_.timeMinIs(clock_.notifier()->now() + *interval);
}

}  // namespace host
