#include "host/base/Times.h"

#include <ctime>

namespace host {

uint64_t timeOfDay() { return static_cast<uint64_t>(std::time(nullptr)); }

uint64_t timeOfDayInMilliseconds() {
  timespec time{};
  (void)clock_gettime(CLOCK_REALTIME, &time);
  constexpr uint64_t millisecond = 1'000'000;  // ns
  return static_cast<uint64_t>(time.tv_sec) * 1000 +
         static_cast<uint64_t>(time.tv_nsec) / millisecond;
}

uint64_t timeSinceBoot() {
  timespec time{};
  (void)clock_gettime(CLOCK_BOOTTIME, &time);
  constexpr uint64_t millisecond = 1'000'000;  // ns
  return static_cast<uint64_t>(time.tv_sec) * 1000 +
         static_cast<uint64_t>(time.tv_nsec) / millisecond;
}

}  // namespace host
