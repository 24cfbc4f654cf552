#include "host/guests/Pacing.h"

#include <algorithm>

#include "host/guests/Shims.h"

namespace host {

Step Pacing::next(const VmFacts& facts, rt::Seconds now) {
  if (facts.sparesGuest && (facts.process || facts.adoptable) && !giveUpAt_)
    restartsDone_ = std::max(restartsDone_, facts.restart);
  const bool restart = facts.restart > restartsDone_;
  const bool mayBeMeant = !facts.wanted || restart || giveUpAt_;
  if (!mayBeMeant || (!facts.process && !facts.switchedOn)) stopsDone_ = facts.stop;
  if (facts.switchedOn && (!facts.wanted || restart || giveUpAt_)) return leave(facts, now);
  if (!facts.switchedOn) {
    if (restart) again();
    // Of a VM that is to stay off, too: nothing of it is left to be restarted.
    if (!facts.process && !facts.adoptable) restartsDone_ = std::max(restartsDone_, facts.restart);
    return start(facts, now);
  }
  const bool isStarted = facts.statusEnabled && !facts.inVain;
  const bool isToStartAgain = isStarted && !facts.process && facts.again;
  if (isStarted && !isToStartAgain) retryAt_ = never;
  // What is being tried may fail once more, as it did before.
  if (isStarted && !facts.starting) delay_ = firstDelay;
  if (isStarted && facts.process && !facts.starting && !runsSince_) runsSince_ = now;
  if (isToStartAgain) return startAgain(now);
  return isStarted || facts.process ? Step::none : retry(now);
}

std::optional<rt::Seconds> Pacing::ownTime(const VmFacts& facts) const {
  const bool isMeant = facts.restart > restartsDone_ || facts.stop > stopsDone_;
  return isMeant ? facts.within : std::nullopt;
}

rt::Seconds Pacing::patienceFor(const VmFacts& facts) const {
  const auto own = ownTime(facts);
  return own && patience_ > rt::Seconds(0) ? *own + shimsOwn : patience_;
}

Step Pacing::leave(const VmFacts& facts, rt::Seconds now) {
  const rt::Seconds patience = patienceFor(facts);
  const bool mayTakeItsTime = facts.process && patience > rt::Seconds(0);
  if (!giveUpAt_) {
    giveUpAt_ = now + patience;
    isAsked_ = false;
  }
  const bool isHurried =
      ownTime(facts) && facts.restart + facts.stop > asked_ && now + patience < *giveUpAt_;
  if (mayTakeItsTime && now < *giveUpAt_) {
    if ((isAsked_ && !isHurried) || facts.takingUp) return Step::none;
    giveUpAt_ = now + patience;
    isAsked_ = true;
    asked_ = facts.restart + facts.stop;
    return Step::ask;
  }
  giveUpAt_.reset();
  return Step::switchOff;
}

Step Pacing::start(const VmFacts& facts, rt::Seconds now) {
  const bool wasRefused = retryAt_ != never;
  if (!wasRefused || !facts.wanted || facts.process) settle();
  if (!facts.wanted || facts.process || (wasRefused && now < retryAt_)) return Step::none;
  retryAt_ = never;
  return Step::switchOn;
}

void Pacing::schedule(rt::Seconds now) {
  retryAt_ = now + delay_;
  delay_ = std::min(delay_ + delay_, longestDelay);
}

Step Pacing::retry(rt::Seconds now) {
  if (retryAt_ == never) schedule(now);
  if (now < retryAt_) return Step::none;
  retryAt_ = never;
  return Step::pulse;
}

// A guest that ends whenever it is started takes nothing but a little of the machine's time.
Step Pacing::startAgain(rt::Seconds now) {
  if (retryAt_ == never) {
    if (runsSince_ && now - *runsSince_ >= longRun) restartDelay_ = firstDelay;
    retryAt_ = now + restartDelay_;
    restartDelay_ = std::min(restartDelay_ + restartDelay_, longestRestartDelay);
  }
  runsSince_.reset();
  if (now < retryAt_) return Step::none;
  retryAt_ = never;
  return Step::pulse;
}

void Pacing::hurry() {
  delay_ = firstDelay;
  restartDelay_ = firstDelay;
  again();
}

void Pacing::again() {
  if (retryAt_ != never) retryAt_ = rt::Seconds(0);
}

void Pacing::settle() {
  delay_ = firstDelay;
  restartDelay_ = firstDelay;
  runsSince_.reset();
  retryAt_ = never;
}

}  // namespace host
