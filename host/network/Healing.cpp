#include "host/network/Healing.h"

#include <algorithm>
#include <utility>

namespace host {

bool Healing::next(CardState state, rt::Seconds now) {
  if (state == CardState::busy) {
    wakeUp_ = now + patience;
    return false;
  }
  if (state != CardState::sick) {
    if (std::exchange(isSick_, false)) betterAt_ = now;
    wakeUp_ = never;
    return false;
  }
  if (!isSick_) fallSick(now);
  wakeUp_ = cureAt_;
  return now >= cureAt_;
}

void Healing::fallSick(rt::Seconds now) {
  isSick_ = true;
  if (now >= betterAt_ + delay_) delay_ = firstDelay;
  cureAt_ = std::max(now + patience, curedAt_ + delay_);
}

void Healing::cured(rt::Seconds begun, rt::Seconds ended) {
  constexpr double share = 30;
  const rt::Seconds took{(ended - begun).value() * share};
  curedAt_ = ended;
  delay_ = std::min(std::max(delay_ + delay_, took), longestDelay);
  cureAt_ = ended + delay_;
  wakeUp_ = cureAt_;
}

}  // namespace host
