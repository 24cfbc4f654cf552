// A clock for tests, which moves only when told.
#pragma once

#include "runtime/loop/Clock.h"

namespace rt::fakes {

class ManualClock final : public Clock {
 public:
  Seconds now() const override { return now_; }
  // Real time brings no wake-up nearer: a loop finds one due, or has none to wait for.
  Seconds untilNextPass() const override;

  // Moves the clock and calls nobody, as time does that passes within a handler.
  void nowIs(Seconds now) { now_ = now; }
  // Lets time pass as it would for the running loop: stops at each wake-up on the way, and turns
  // the activity manager there and at the end.
  void advance(Seconds by);
  using Clock::pass;
  // A pass without the loop; what a handler threw first is thrown at its end.
  template <class Tired>
  void pass(Tired tired) {
    FirstException failures;
    pass(tired, failures);
    failures.rethrow();
  }
  // The earliest wake-up set; infinity when there is none.
  Seconds nextWakeUpTime() const { return nextWakeUp(); }

 private:
  Seconds now_{1000};
};

}  // namespace rt::fakes
