#include "runtime/loop/ActivityManager.h"

#include <algorithm>
#include <mutex>

#include "runtime/base/Check.h"

namespace rt {

namespace {

constexpr Seconds longTurn{1.0};
// A descriptor that nobody reads stays ready; so draining must end some time.
constexpr int maxDrainRounds = 100;

ActivityManager* current = nullptr;

}  // namespace

ActivityManager& activityManager() {
  check(current != nullptr, "there is no activity manager");
  return *current;
}

ActivityManager::ActivityManager(Ptr<Clock> clock) : clock_(std::move(clock)) {
  check(current == nullptr, "there is an activity manager already");
  current = this;
  notificationThreadIs(true);
}

ActivityManager::~ActivityManager() {
  notificationThreadIs(false);
  current = nullptr;
}

void ActivityManager::turn(Seconds atMost) {
  check(!lock_.heldByThisThread(), "a handler runs the loop that called it");
  descriptors_.wait(std::min(atMost, untilNextPass()));

  const std::lock_guard held(lock_);
  const Seconds start = clock_->now();
  const auto isLong = [&] { return clock_->now() - start > longTurn; };
  const bool afterLongTurn = std::exchange(longTurn_, true);  // until the end says otherwise
  FirstException failures;
  descriptors_.dispatch(failures);
  if (afterLongTurn || isLong() || descriptors_.moreMayBeReady()) drain(failures);
  clock_->pass(isLong, failures);
  longTurn_ = isLong();
  failures.rethrow();
}

Seconds ActivityManager::untilNextPass() {
  const std::lock_guard held(lock_);
  return clock_->untilNextPass();
}

void ActivityManager::drain(FirstException& failures) {
  for (int round = 0; round < maxDrainRounds && descriptors_.wait(Seconds(0)); ++round)
    descriptors_.dispatch(failures);
}

void ActivityManager::run() {
  stopped_ = false;
  while (!stopped_) turn();
}

}  // namespace rt
