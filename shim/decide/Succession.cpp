#include "shim/decide/Succession.h"

namespace shim {

void Succession::daemonEnded() {
  daemonLives_ = false;
  endAt_.reset();
}

void Succession::takenOver() { daemonLives_ = true; }

void Succession::successorGone(Time now) {
  if (daemonLives_) endAt_ = now + patience;
}

bool Succession::timePassed(Time now) {
  if (!endAt_ || now < *endAt_) return false;
  endAt_.reset();
  return true;
}

}  // namespace shim
