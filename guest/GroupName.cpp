#include "guest/GroupName.h"

#include <charconv>

namespace guest {

namespace {

constexpr std::string_view prefix = "vm-";

}  // namespace

std::string groupNameOf(std::string_view vm, uint64_t need) {
  return std::string(prefix) + std::string(vm) + "." + std::to_string(need);
}

std::optional<GroupName> groupFrom(std::string_view name) {
  const size_t dot = name.rfind('.');
  if (!name.starts_with(prefix) || dot == std::string_view::npos || dot <= prefix.size())
    return std::nullopt;
  const std::string_view digits = name.substr(dot + 1);
  uint64_t need = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), need);
  if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return GroupName{std::string(name.substr(prefix.size(), dot - prefix.size())), need};
}

}  // namespace guest
