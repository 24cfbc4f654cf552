#include "guest/Emulation.h"

#include <algorithm>

namespace guest {

namespace {

constexpr uint32_t leastCache = 32;
constexpr uint32_t mostCache = 256;

bool isWordAt(std::string_view text, size_t at, size_t length) {
  const auto isBlank = [&](size_t i) {
    return i >= text.size() || text[i] == ' ' || text[i] == '\t' || text[i] == '\n';
  };
  return (at == 0 || isBlank(at - 1)) && isBlank(at + length);
}

}  // namespace

uint32_t codeCacheOf(uint32_t memory) { return std::clamp(memory / 4, leastCache, mostCache); }

bool canRunGuests(std::string_view cpuinfo) {
  const size_t begin = cpuinfo.find("\nflags");
  if (begin == std::string_view::npos) return false;
  const std::string_view flags = cpuinfo.substr(begin + 1, cpuinfo.find('\n', begin + 1) - begin);
  for (const std::string_view flag : {"vmx", "svm"})
    for (size_t at = flags.find(flag); at != std::string_view::npos; at = flags.find(flag, at + 1))
      if (isWordAt(flags, at, flag.size())) return true;
  return false;
}

}  // namespace guest
