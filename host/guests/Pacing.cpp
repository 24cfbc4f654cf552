#include "host/guests/Pacing.h"

#include <algorithm>

namespace host {

Step Pacing::next(const VmFacts& facts, rt::Seconds now) {
  const bool restart = facts.restart > restartsDone_;
  if (facts.switchedOn && (!facts.wanted || restart || giveUpAt_)) return leave(facts, now);
  if (!facts.switchedOn) {
    settle();
    // Of a VM that is to stay off, too: nothing of it is left to be restarted.
    if (!facts.process && !facts.adoptable) restartsDone_ = std::max(restartsDone_, facts.restart);
    return facts.wanted && !facts.process ? Step::switchOn : Step::none;
  }
  if (facts.statusEnabled) settle();
  return facts.statusEnabled || facts.process ? Step::none : retry(now);
}

Step Pacing::leave(const VmFacts& facts, rt::Seconds now) {
  const bool mayTakeItsTime = facts.process && patience_ > rt::Seconds(0);
  if (mayTakeItsTime && !giveUpAt_) {
    giveUpAt_ = now + patience_;
    return Step::ask;
  }
  if (mayTakeItsTime && now < *giveUpAt_) return Step::none;
  giveUpAt_.reset();
  return Step::switchOff;
}

Step Pacing::retry(rt::Seconds now) {
  if (retryAt_ == never) {
    retryAt_ = now + delay_;
    delay_ = std::min(delay_ + delay_, longestDelay);
  }
  if (now < retryAt_) return Step::none;
  retryAt_ = never;
  return Step::pulse;
}

void Pacing::hurry() {
  delay_ = firstDelay;
  if (retryAt_ != never) retryAt_ = rt::Seconds(0);
}

void Pacing::settle() {
  delay_ = firstDelay;
  retryAt_ = never;
}

}  // namespace host
