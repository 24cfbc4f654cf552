#include "runtime/fakes/ManualClock.h"

#include <algorithm>

#include "runtime/loop/ActivityManager.h"

namespace rt::fakes {

Seconds ManualClock::untilNextPass() const {
  return nextWakeUp() <= now_ ? Seconds(0) : Seconds::infinity();
}

void ManualClock::advance(Seconds by) {
  const Seconds target = now_ + by;
  while (nextWakeUp() <= target) {
    now_ = std::max(now_, nextWakeUp());
    activityManager().turn(Seconds(0));
  }
  now_ = std::max(now_, target);
  activityManager().turn(Seconds(0));
}

}  // namespace rt::fakes
