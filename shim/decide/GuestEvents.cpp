#include "shim/decide/GuestEvents.h"

#include <algorithm>
#include <array>
#include <utility>

#include "guest/EventWords.h"
#include "guest/ShimProtocol.h"
#include "runtime/base/VisibleText.h"

namespace shim {

namespace {

namespace word = guest::event;

struct Translation {
  std::string_view event;   // QEMU's name
  std::string_view kind;    // ours
  std::string_view reason;  // the member of its data that says how, or what was done; empty: none
  std::string_view text;    // likewise, about what
};

constexpr std::array translations{
    Translation{"STOP", word::paused, "", ""},
    Translation{"RESUME", word::resumed, "", ""},
    Translation{"RESET", word::reset, "reason", ""},
    Translation{"SUSPEND", word::suspended, "", ""},
    Translation{"SUSPEND_DISK", word::suspended, "", ""},
    Translation{"WAKEUP", word::wokenUp, "", ""},
    Translation{"SHUTDOWN", word::shutDown, "reason", ""},
    Translation{"GUEST_PANICKED", word::panicked, "action", ""},
    Translation{"WATCHDOG", word::watchdog, "action", ""},
    Translation{"BLOCK_IO_ERROR", word::diskError, "action", "reason"},
};

// A guest makes these happen as often as it likes, and operators the last ones. An event that ends
// such a state has none of its own: it is told where what began the state was.
struct Begin {
  std::string_view kind;
  std::string_view end;       // empty: it is over at once
  std::string_view reason{};  // of which alone it is so; empty: of each
};
constexpr std::array begins{Begin{word::paused, word::resumed},
                            Begin{word::reset, ""},
                            Begin{word::suspended, word::wokenUp},
                            Begin{word::panicked, word::resumed},
                            Begin{word::watchdog, word::resumed},
                            Begin{word::diskError, word::resumed},
                            Begin{word::silent, word::answers},
                            Begin{word::shutDown, ""},
                            Begin{word::wished, word::resumed, guest::word::pause},
                            Begin{word::wished, ""}};

const Begin* beginOf(const GuestEvent& event) {
  const auto* const found = std::find_if(begins.begin(), begins.end(), [&](const Begin& each) {
    return each.kind == event.kind && (each.reason.empty() || each.reason == event.reason);
  });
  return found == begins.end() ? nullptr : found;
}

bool isEnd(std::string_view kind) {
  return std::any_of(begins.begin(), begins.end(),
                     [&](const Begin& each) { return each.end == kind; });
}

// What is counted together. A flood of one wish is to hide none of another.
std::string countedAs(const GuestEvent& event) {
  return std::string(event.kind) + (event.kind == word::wished ? " " + event.reason : "");
}

std::string member(std::string_view name, const std::string& value) {
  return ",\"" + std::string(name) + "\":" + value;
}

std::string textMember(std::string_view name, const std::string& text) {
  if (text.empty()) return {};
  return member(name, qmp::quoted(rt::visibleText(text.substr(0, EventLines::longestText))));
}

}  // namespace

std::optional<GuestEvent> eventFrom(const qmp::Saying& saying) {
  const auto* const found =
      std::find_if(translations.begin(), translations.end(),
                   [&](const Translation& each) { return each.event == saying.event; });
  if (found == translations.end()) return std::nullopt;
  const auto text = [&](std::string_view name) {
    const auto value = saying.texts.find(std::string(name));
    return value == saying.texts.end() ? std::string() : value->second;
  };
  return GuestEvent{found->kind, text(found->reason), text(found->text), saying.byGuest, {}};
}

EventLines::EventLines(int64_t run) : run_(run), owed_{word::resumed} {}

bool EventLines::mayBeTold(const GuestEvent& event, Moment now) {
  if (event.kind == word::reset) {
    const bool isSame = lastReset_ && now.up - *lastReset_ < oneReset;
    if (isSame) return false;
    lastReset_ = now.up;
  }
  if (isEnd(event.kind)) {
    std::erase_if(withheld_,
                  [&](const Withheld& each) { return beginOf(each.event)->end == event.kind; });
    return owed_.erase(event.kind) > 0;
  }
  const Begin* const begin = beginOf(event);
  if (!begin) return true;
  Kind& kind = kinds_[countedAs(event)];
  kind.full = std::max(kind.full, now.up);
  const bool may = kind.free() <= now.up;
  if (may) kind.full += refill;
  if (!may) ++kind.skipped;
  if (begin->end.empty()) return may;
  if (may) owed_.insert(begin->end);
  withhold(event, now);
  if (may) withheld_.pop_back();
  return may;
}

// In the place of one of its kind that came before.
void EventLines::withhold(const GuestEvent& event, Moment now) {
  std::erase_if(withheld_,
                [&](const Withheld& each) { return countedAs(each.event) == countedAs(event); });
  withheld_.push_back({event, now});
}

std::string EventLines::line(const GuestEvent& event, Moment now) {
  return mayBeTold(event, now) ? written(event, now) : std::string();
}

std::string EventLines::timePassed(int64_t up) {
  std::string lines;
  for (const Withheld& each : std::exchange(withheld_, {})) {
    Kind& kind = kinds_[countedAs(each.event)];
    if (kind.free() > up) {
      withheld_.push_back(each);
      continue;
    }
    kind.full = std::max(kind.full, up) + refill;
    --kind.skipped;
    owed_.insert(beginOf(each.event)->end);
    lines += written(each.event, each.at);
  }
  return lines;
}

std::optional<int64_t> EventLines::deadline() const {
  std::optional<int64_t> first;
  for (const Withheld& each : withheld_) {
    const int64_t free = kinds_.at(countedAs(each.event)).free();
    first = first ? std::min(*first, free) : free;
  }
  return first;
}

std::string EventLines::written(const GuestEvent& event, Moment at) {
  std::string line = "{\"run\":" + std::to_string(run_) + member("n", std::to_string(++number_)) +
                     member("at", std::to_string(at.at)) + member("up", std::to_string(at.up)) +
                     textMember("kind", std::string(event.kind)) +
                     textMember("reason", event.reason) + textMember("text", event.text) +
                     textMember("by", event.by);
  if (event.byGuest) line += member("byGuest", *event.byGuest ? "true" : "false");
  for (const auto& [name, number] : event.numbers) line += member(name, std::to_string(number));
  if (const auto kind = kinds_.find(countedAs(event));
      kind != kinds_.end() && kind->second.skipped > 0)
    line += member("skipped", std::to_string(std::exchange(kind->second.skipped, 0)));
  return line + "}\n";
}

}  // namespace shim
