#include "shim/decide/StopPlan.h"

#include <algorithm>

namespace shim {

StopStep StopPlan::orderly(Time now, Duration timeout, Guest guest) {
  if (hasBegun() && timeout > Duration::zero()) {
    if (step_ == StopStep::powerDown) timeout_ = std::min(timeout_, now - since_ + timeout);
    return StopStep::none;
  }
  // A guest that never ran has nothing to put in order, and would never see the button.
  if (hasBegun() || timeout <= Duration::zero() || !guest.canBeAsked || !guest.hasRun)
    return next(now, guest);
  since_ = now;
  timeout_ = timeout;
  step_ = StopStep::powerDown;
  return step_;
}

StopStep StopPlan::timePassed(Time now, Guest guest) {
  const auto due = deadline();
  return due && now >= *due ? next(now, guest) : StopStep::none;
}

std::optional<Time> StopPlan::deadline() const {
  if (step_ == StopStep::none || step_ == StopStep::kill) return std::nullopt;
  return since_ + (step_ == StopStep::powerDown ? timeout_ : patience);
}

StopStep StopPlan::next(Time now, Guest guest) {
  since_ = now;
  if (step_ < StopStep::quit && guest.canBeAsked)
    step_ = StopStep::quit;
  else if (step_ < StopStep::terminate)
    step_ = StopStep::terminate;
  else
    step_ = StopStep::kill;
  return step_;
}

}  // namespace shim
