#include "guest/GuestUsers.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace guest {

namespace {

// Nothing for what is no number's text.
std::optional<unsigned> numberFrom(std::string_view text) {
  unsigned number = 0;
  const char* const end = text.data() + text.size();
  const auto [at, error] = std::from_chars(text.data(), end, number);
  if (text.empty() || error != std::errc() || at != end) return std::nullopt;
  return number;
}

// What stands between the colons, counted from 0.
std::string_view fieldOf(std::string_view line, int number) {
  for (; number > 0; --number) {
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) return {};
    line.remove_prefix(colon + 1);
  }
  return line.substr(0, line.find(':'));
}

}  // namespace

std::optional<UserRange> userRangeFrom(std::string_view text) {
  const size_t dash = text.find('-');
  if (dash == std::string_view::npos) return std::nullopt;
  const auto first = numberFrom(text.substr(0, dash));
  const auto last = numberFrom(text.substr(dash + 1));
  if (!first || !last || *first == 0 || *first > *last ||
      *last == std::numeric_limits<unsigned>::max())
    return std::nullopt;
  return UserRange{*first, *last};
}

std::string textOf(const UserRange& range) {
  return std::to_string(range.first) + "-" + std::to_string(range.last);
}

std::set<unsigned> takenUsers(std::string_view lines, const UserRange& range) {
  std::set<unsigned> taken;
  while (!lines.empty()) {
    const size_t end = std::min(lines.find('\n'), lines.size());
    const auto number = numberFrom(fieldOf(lines.substr(0, end), 2));
    if (number && *number >= range.first && *number <= range.last) taken.insert(*number);
    lines.remove_prefix(std::min(end + 1, lines.size()));
  }
  return taken;
}

}  // namespace guest
