// Time, and other things that differ from machine to machine.
#include <sys/random.h>
#include <sys/time.h>
#include <unistd.h>

#include <ctime>

#include "sim/seam/Name.h"

namespace {

using namespace sim;

constexpr long nanosecondsASecond = 1'000'000'000;
constexpr long nanosecondsAMicrosecond = 1000;

timespec sinceStart() {
  const auto time = machine().now().count();
  return {static_cast<time_t>(time / nanosecondsASecond), time % nanosecondsASecond};
}

void fill(void* to, size_t size) {
  Stream& choice = machine().choices.stream("random bytes");
  constexpr uint64_t values = 256;
  for (size_t i = 0; i < size; ++i)
    static_cast<unsigned char*>(to)[i] = static_cast<unsigned char>(choice.below(values));
}

}  // namespace

extern "C" {

// No call of the gate's: nobody but time itself could notice.
int simClockTime(clockid_t clock, timespec* time) asm("clock_gettime");
int simClockTime(clockid_t clock, timespec* time) {
  static constinit Name name("clock_gettime");
  if (!inWorld()) return name.library(&simClockTime)(clock, time);
  const bool isOfDay = clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
  *time = isOfDay ? machine().clock.timeOfDay() : sinceStart();
  return 0;
}
int simTimeOfDay(timeval* time, void* zone) asm("gettimeofday");
int simTimeOfDay(timeval* time, void* zone) {
  static constinit Name name("gettimeofday");
  if (!inWorld()) return name.library(&simTimeOfDay)(time, zone);
  const timespec now = machine().clock.timeOfDay();
  *time = {now.tv_sec, now.tv_nsec / nanosecondsAMicrosecond};
  return 0;
}
time_t simTime(time_t* to) asm("time");
time_t simTime(time_t* to) {
  static constinit Name name("time");
  if (!inWorld()) return name.library(&simTime)(to);
  const time_t now = machine().clock.timeOfDay().tv_sec;
  if (to) *to = now;
  return now;
}

long simSystemValue(int value) asm("sysconf");
long simSystemValue(int value) {
  static constinit Name name("sysconf");
  constexpr long pages = 1 << 20;  // 4 GiB
  constexpr long pageSize = 4096;
  constexpr long processors = 4;
  if (inWorld() && (value == _SC_PHYS_PAGES || value == _SC_AVPHYS_PAGES)) return pages;
  if (inWorld() && value == _SC_PAGESIZE) return pageSize;
  if (inWorld() && (value == _SC_NPROCESSORS_ONLN || value == _SC_NPROCESSORS_CONF))
    return processors;
  return name.library(&simSystemValue)(value);
}

ssize_t simRandom(void* to, size_t size, unsigned flags) asm("getrandom");
ssize_t simRandom(void* to, size_t size, unsigned flags) {
  static constinit Name name("getrandom");
  if (!inWorld()) return name.library(&simRandom)(to, size, flags);
  fill(to, size);
  return static_cast<ssize_t>(size);
}
int simEntropy(void* to, size_t size) asm("getentropy");
int simEntropy(void* to, size_t size) {
  static constinit Name name("getentropy");
  if (!inWorld()) return name.library(&simEntropy)(to, size);
  fill(to, size);
  return 0;
}

}  // extern "C"
