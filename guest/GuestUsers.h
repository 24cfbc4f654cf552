// The users that guests' QEMUs are run as: one each, and nobody else's.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace guest {

// Their numbers, and those of their groups. Nothing allocates any of the default ones: Debian's own
// are below, those that systemd gives out for a while and those of containers above.
struct UserRange {
  unsigned first = 60578;
  unsigned last = 61183;

  unsigned size() const { return last - first + 1; }
  bool operator==(const UserRange&) const = default;
};

// That of a text "60578-61183"; nothing for one that is none, or has root in it.
std::optional<UserRange> userRangeFrom(std::string_view text);
std::string textOf(const UserRange& range);

// Which of the range are somebody's, by lines as those of /etc/passwd and /etc/group.
std::set<unsigned> takenUsers(std::string_view lines, const UserRange& range);

}  // namespace guest
