#include "shim/keep/EventFile.h"

#include <ctime>
#include <utility>

namespace shim {

namespace {

int64_t millisecondsOf(clockid_t clock) {
  timespec time{};
  (void)clock_gettime(clock, &time);
  return time.tv_sec * 1000 + time.tv_nsec / 1'000'000;
}

}  // namespace

EventFile::EventFile(Place place)
    : file_(std::move(place), limit), lines_(millisecondsOf(CLOCK_BOOTTIME)) {}

void EventFile::tell(const GuestEvent& event) {
  file_.write(lines_.line(event, {millisecondsOf(CLOCK_REALTIME), millisecondsOf(CLOCK_BOOTTIME)}));
}

}  // namespace shim
