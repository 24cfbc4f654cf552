#include "shim/keep/EventFile.h"

#include <algorithm>
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

bool EventFile::tell(const GuestEvent& event) {
  const std::string line =
      lines_.line(event, {millisecondsOf(CLOCK_REALTIME), millisecondsOf(CLOCK_BOOTTIME)});
  file_.write(line);
  return !line.empty();
}

void EventFile::timePassed() {
  if (!lines_.deadline()) return;
  file_.write(lines_.timePassed(millisecondsOf(CLOCK_BOOTTIME)));
}

std::optional<int64_t> EventFile::timeLeft() const {
  const auto due = lines_.deadline();
  return due ? std::optional(std::max<int64_t>(0, *due - millisecondsOf(CLOCK_BOOTTIME)))
             : std::nullopt;
}

}  // namespace shim
