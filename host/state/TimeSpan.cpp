#include "host/state/TimeSpan.h"

#include "runtime/base/Text.h"

namespace host {

rt::String spanText(uint64_t milliseconds) {
  constexpr uint64_t minute = 60;
  constexpr uint64_t hour = 60 * minute;
  constexpr uint64_t day = 24 * hour;
  const uint64_t seconds = milliseconds / 1000;
  const auto parts = [](uint64_t great, const char* unit, uint64_t small, const char* smallUnit) {
    rt::String text = rt::toText(great) + " " + unit;
    if (small != 0) text += " " + rt::toText(small) + " " + smallUnit;
    return text;
  };
  if (seconds < minute) return rt::toText(seconds) + " s";
  if (seconds < hour) return parts(seconds / minute, "min", seconds % minute, "s");
  if (seconds < day) return parts(seconds / hour, "h", seconds % hour / minute, "min");
  return parts(seconds / day, "d", seconds % day / hour, "h");
}

}  // namespace host
