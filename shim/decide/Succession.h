// For whom a guest is kept.
#pragma once

#include <optional>

#include "shim/decide/Time.h"

namespace shim {

// Decides whether a successor may take the guest over, and whether the guest must end because the
// daemon that lives believes that it has. Pure.
//
//   the daemon | the successor | the guest
//   -----------+---------------+----------------------------------------------------------------
//   lives      | none yet      | is kept by the daemon's own child
//   lives      | is there      | is kept by us, and the successor stands in for us with its daemon
//   lives      | is gone       | ends, a moment later: a daemon that ends takes its successor
//              |               | along, and may be seen to end after it
//   has ended  | any           | goes on, and may be taken over
class Succession {
 public:
  // From the successor's end to when the daemon is believed to live.
  static constexpr Duration patience{1'000};

  explicit Succession(bool daemonLives) : daemonLives_(daemonLives) {}

  bool mayBeTakenOver() const { return !daemonLives_; }
  void daemonEnded();
  // Its daemon lives.
  void takenOver();
  void successorGone(Time now);
  // Whether the guest must end. Once.
  bool timePassed(Time now);
  // When timePassed() should be called next.
  std::optional<Time> deadline() const { return endAt_; }

 private:
  bool daemonLives_;
  std::optional<Time> endAt_;
};

}  // namespace shim
