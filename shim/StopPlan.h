// How a guest is ended that was told to end.
#pragma once

#include <optional>

#include "shim/Time.h"

namespace shim {

enum class StopStep { none, quit, terminate, kill };

// Decides what to do next, and when: QMP "quit" first, by which QEMU ends with status 0 and its
// disks in order, then SIGTERM, then SIGKILL. Pure. An orderly shutdown by the guest itself would
// be a step before these.
class StopPlan {
 public:
  // Each step has so long to take effect.
  static constexpr Duration patience{2'000};

  // The guest is told to end, for the first time or once more, which skips ahead.
  StopStep told(Time now, bool canQuit);
  StopStep timePassed(Time now, bool canQuit);
  // When timePassed() should be called next.
  std::optional<Time> deadline() const;
  bool hasBegun() const { return step_ != StopStep::none; }

 private:
  StopStep next(Time now, bool canQuit);

  StopStep step_ = StopStep::none;  // that was done last
  Time since_{};
};

}  // namespace shim
