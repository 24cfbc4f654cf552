#include "model/GuestMemory.h"

#include <algorithm>

#include "guest/Emulation.h"
#include "runtime/base/Text.h"

namespace model {

namespace {

constexpr uint32_t kernelsShare = 256;  // a 256th
constexpr uint32_t ofQemu = 64;
constexpr uint32_t ofProcessor = 4;
constexpr uint32_t ofScreen = 16;
constexpr uint32_t ofDisk = 32;

constexpr uint32_t mostReserve = 2048;

// What stands behind a name in /proc/meminfo, as "MemAvailable:   22748 kB".
std::optional<uint64_t> kibibytesOf(std::string_view text, std::string_view name) {
  const size_t at = text.find(name);
  if (at == std::string_view::npos) return std::nullopt;
  const size_t begin = text.find_first_not_of(' ', at + name.size());
  if (begin == std::string_view::npos) return std::nullopt;
  return rt::fromText<uint64_t>(text.substr(begin, text.find(' ', begin) - begin));
}

}  // namespace

uint32_t memoryNeed(const Vm::VmConfig& vm, Processor processor) {
  const uint32_t memory = vm.memory();
  const uint32_t code = guest::codeCacheOf(memory);
  return memory + memory / kernelsShare + 1 + ofQemu + ofProcessor + ofDisk +
         (vm.vncPort() == 0 ? 0 : ofScreen) +
         (processor == Processor::emulated ? code + code / 4 : 0);
}

std::optional<rt::String> refusalOf(uint64_t need, const Room& room) {
  if (room.given + need > room.cap)
    return grouped(need) + " MiB would make " + grouped(room.given + need) +
           " of all guests; they may have " + grouped(room.cap);
  if (!room.available) return std::nullopt;
  // Those that there are may still take what they were given.
  const uint64_t promised = room.given - std::min(room.given, room.touched);
  const uint64_t left = *room.available - std::min(*room.available, promised);
  if (left >= need + room.reserve) return std::nullopt;
  if (left < need)
    return grouped(need) + " MiB are not there: " + grouped(left) +
           " are available; the reserve is " + grouped(room.reserve);
  return grouped(need) + " MiB would leave " + grouped(left - need) + " MiB; the reserve is " +
         grouped(room.reserve);
}

uint32_t usualCap(uint32_t memory) { return memory - memory / 4; }
uint32_t usualReserve(uint32_t memory) { return std::min(memory / 8, mostReserve); }

std::optional<uint64_t> availableIn(std::string_view meminfo) {
  const auto kibibytes = kibibytesOf(meminfo, "MemAvailable:");
  return kibibytes ? std::optional(*kibibytes / 1024) : std::nullopt;
}

uint64_t mebibytesIn(std::string_view bytes) {
  return rt::fromText<uint64_t>(bytes.substr(0, bytes.find('\n'))).value_or(0) >> 20U;
}

rt::String grouped(uint64_t number) {
  const std::string digits = std::to_string(number);
  rt::String text;
  for (size_t at = 0; at < digits.size(); ++at) {
    if (at != 0 && (digits.size() - at) % 3 == 0) text += ",";
    text += std::string_view(digits).substr(at, 1);
  }
  return text;
}

}  // namespace model
