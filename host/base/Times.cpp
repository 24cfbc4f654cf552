#include "host/base/Times.h"

#include <fcntl.h>
#include <unistd.h>

#include <ctime>
#include <string_view>

#include "runtime/base/Descriptor.h"

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

uint64_t bootedAt() { return timeOfDayInMilliseconds() - timeSinceBoot(); }

rt::String bootId() {
  const rt::Descriptor file(open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC));
  char id[64] = "";
  const ssize_t size = file ? read(file.number(), id, sizeof id) : 0;
  const std::string_view text(id, size > 0 ? static_cast<size_t>(size) : 0);
  return rt::String(text.substr(0, text.find('\n')));
}

}  // namespace host
