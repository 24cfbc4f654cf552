#include "shim/StopPlan.h"

namespace shim {

StopStep StopPlan::told(Time now, bool canQuit) { return next(now, canQuit); }

StopStep StopPlan::timePassed(Time now, bool canQuit) {
  const auto due = deadline();
  return due && now >= *due ? next(now, canQuit) : StopStep::none;
}

std::optional<Time> StopPlan::deadline() const {
  if (step_ == StopStep::none || step_ == StopStep::kill) return std::nullopt;
  return since_ + patience;
}

StopStep StopPlan::next(Time now, bool canQuit) {
  since_ = now;
  if (step_ == StopStep::none && canQuit)
    step_ = StopStep::quit;
  else if (step_ == StopStep::none || step_ == StopStep::quit)
    step_ = StopStep::terminate;
  else
    step_ = StopStep::kill;
  return step_;
}

}  // namespace shim
