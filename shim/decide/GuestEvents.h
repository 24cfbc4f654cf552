// What happens to a guest, as its shim tells it. Pure.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "shim/decide/QmpText.h"

namespace shim {

struct GuestEvent {
  std::string_view kind;  // one of guest/EventWords.h
  std::string reason;
  std::string text;
  std::optional<bool> byGuest;
  std::map<std::string_view, int64_t> numbers;  // by the member's name
  std::string by{};                             // who asked for it
};

// Returns what an event of QEMU's tells of the guest; nothing for one that tells nothing of it.
std::optional<GuestEvent> eventFrom(const qmp::Saying& saying);

// When something was, on two clocks.
struct Moment {
  int64_t at = 0;  // ms since 1970
  int64_t up = 0;  // ms since the machine was booted
};

// Makes lines of events, and bounds what others can make a shim write: of a kind that a guest can
// repeat as it likes, and of each thing that operators can ask for, twenty at once are told, and
// two a second; how many were not is told with the next. The end of a state is told where its begin
// was, so that none is believed to last; and a state that does last is told, though later. QEMU
// tells of each reset twice: those that come within a second are one.
class EventLines {
 public:
  static constexpr int64_t atOnce = 20;
  static constexpr int64_t refill = 500;     // ms until one more is told
  static constexpr int64_t oneReset = 1000;  // ms
  static constexpr size_t longestText = 160;

  // `run`: when it began, in ms since the machine was booted.
  explicit EventLines(int64_t run);

  // Returns the event's line, which ends in LF; empty when it is not told.
  std::string line(const GuestEvent& event, Moment now);

  // The lines of what was not told then, lasts, and may be told by now.
  std::string timePassed(int64_t up);
  // When timePassed() should be called next, in ms since boot; nothing while nothing lasts.
  std::optional<int64_t> deadline() const;

 private:
  struct Kind {
    int64_t full = 0;  // when `atOnce` may be told again, in ms since boot
    int64_t skipped = 0;
    int64_t free() const { return full - (atOnce - 1) * refill; }  // when one may be
  };
  struct Withheld {
    GuestEvent event;
    Moment at;
  };

  bool mayBeTold(const GuestEvent& event, Moment now);
  void withhold(const GuestEvent& event, Moment now);
  std::string written(const GuestEvent& event, Moment at);

  const int64_t run_;
  int64_t number_ = 0;
  std::map<std::string, Kind> kinds_;
  std::vector<Withheld> withheld_;   // begins of states, one of each kind
  std::set<std::string_view> owed_;  // ends of what was told; at first, that the guest is let run
  std::optional<int64_t> lastReset_;
};

}  // namespace shim
