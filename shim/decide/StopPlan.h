// How a guest is ended that was told to end.
#pragma once

#include <optional>

#include "shim/decide/Time.h"

namespace shim {

enum class StopStep { none, powerDown, quit, terminate, kill };

// Decides what to do next, and when. Pure.
//
//   step       | has so long to take effect | it is
//   -----------+----------------------------+---------------------------------------------------
//   powerDown  | as asked for               | the power button: the guest shuts itself down. Only
//              |                            | of an orderly stop, and of a guest that has run
//   quit       | 2 s                        | QMP's: QEMU ends with status 0, its disks in order
//   terminate  | 2 s                        | SIGTERM
//   kill       | for ever                   | SIGKILL
//
// A step that cannot be done is left out. Told once more, it skips ahead where it is to be done at
// once, and never takes longer than it was told before.
class StopPlan {
 public:
  static constexpr Duration patience{2'000};

  // What the guest is like at that moment.
  struct Guest {
    bool canBeAsked = false;  // its QEMU takes requests
    bool hasRun = false;
  };

  // The guest is to end, and gets so long to shut itself down.
  StopStep orderly(Time now, Duration timeout, Guest guest);
  // The guest is to end at once.
  StopStep atOnce(Time now, Guest guest) { return next(now, guest); }
  StopStep timePassed(Time now, Guest guest);
  // When timePassed() should be called next.
  std::optional<Time> deadline() const;
  bool hasBegun() const { return step_ != StopStep::none; }

 private:
  StopStep next(Time now, Guest guest);

  StopStep step_ = StopStep::none;  // that was done last
  Time since_{};
  Duration timeout_{};  // of the power button
};

}  // namespace shim
