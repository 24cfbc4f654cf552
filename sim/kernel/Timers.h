// What happens at a time.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <utility>

#include "sim/base/Time.h"

namespace sim {

using TimerId = std::pair<Time, uint64_t>;

// In the order of their times; of equal ones, in the order in which they were set.
class Timers {
 public:
  TimerId add(Time time, std::function<void()> action) {
    const TimerId id(time, ++last_);
    actions_.emplace(id, std::move(action));
    return id;
  }
  void remove(const TimerId& id) { actions_.erase(id); }
  Time next() const { return actions_.empty() ? never : actions_.begin()->first.first; }
  // Does what is due, also what is added meanwhile.
  void pass(Time now) {
    while (next() <= now) actions_.extract(actions_.begin()).mapped()();
  }

 private:
  std::map<TimerId, std::function<void()>> actions_;
  uint64_t last_ = 0;
};

}  // namespace sim
