#include "host/guests/StartOrder.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace host {

void StartOrder::placesAre(std::vector<Place> places, rt::Seconds now) {
  for (Place& place : places) {
    if (place.number == 0)
      others_.insert(place.vm);
    else
      places_.push_back(std::move(place));
  }
  std::sort(places_.begin(), places_.end(), [](const Place& a, const Place& b) {
    return std::tie(b.number, b.vm) < std::tie(a.number, a.vm);
  });
  turn_ = now;
  freeNext();
}

// The next one is to ask, or all others where there is none.
void StartOrder::freeNext() {
  if (!places_.empty()) {
    freed_.push_back(places_.back().vm);
    return;
  }
  freed_.insert(freed_.end(), others_.begin(), others_.end());
}

rt::Seconds StartOrder::turnAt(const rt::String& vm) const {
  if (!places_.empty() && places_.back().vm == vm) return turn_;
  const bool hasPlace = std::any_of(places_.begin(), places_.end(),
                                    [&](const Place& place) { return place.vm == vm; });
  if (hasPlace) return rt::Seconds::infinity();
  if (!others_.contains(vm)) return rt::Seconds(0);
  return places_.empty() ? turn_ : rt::Seconds::infinity();
}

bool StartOrder::isTurn(const rt::String& vm, rt::Seconds now) const { return turnAt(vm) <= now; }

rt::String StartOrder::after(const rt::String& vm) const {
  return turnAt(vm) == rt::Seconds::infinity() ? places_.back().vm : before_;
}

rt::Seconds StartOrder::heldUntil(const rt::String& vm) const {
  const bool isNext = !places_.empty() && places_.back().vm == vm;
  return isNext ? turn_ + patience : rt::Seconds::infinity();
}

void StartOrder::started(const rt::String& vm, rt::Seconds now) {
  const bool isNext = !places_.empty() && places_.back().vm == vm;
  if (isNext) {
    turn_ = now + places_.back().delay;
    before_ = vm;
  }
  passed(vm);
}

void StartOrder::passed(const rt::String& vm) {
  others_.erase(vm);
  const auto place = std::find_if(places_.begin(), places_.end(),
                                  [&](const Place& each) { return each.vm == vm; });
  if (place == places_.end()) return;
  const bool wasNext = place + 1 == places_.end();
  places_.erase(place);
  if (wasNext) freeNext();
}

}  // namespace host
