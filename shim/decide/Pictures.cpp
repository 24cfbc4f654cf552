#include "shim/decide/Pictures.h"

#include <string>
#include <utility>

#include "guest/EventWords.h"

namespace shim {

namespace {

namespace event = guest::event;

// Above those that the shim gives the disk's images.
constexpr uint64_t firstSet = 1'000;

std::string setOf(uint64_t number) { return std::to_string(firstSet + number); }

Step removalOf(uint64_t number) { return {"remove-fd", "{\"fdset-id\":" + setOf(number) + "}"}; }

}  // namespace

std::vector<Step> Pictures::drawing(uint64_t number) {
  return {{"add-fd", "{\"fdset-id\":" + setOf(number) + "}"},
          {"screendump", R"({"filename":"/dev/fdset/)" + setOf(number) + R"(","format":"png"})"},
          removalOf(number)};
}

void Pictures::take(std::string_view kind) {
  const bool runs = kind == event::resumed || kind == event::wokenUp;
  const bool stops = kind == event::paused || kind == event::suspended;
  if (!runs && !stops && kind != event::reset) return;
  ++changes_;
  if (runs || stops) isRunning_ = runs;
}

std::optional<uint64_t> Pictures::stillness() const {
  return isRunning_ ? std::nullopt : std::optional(changes_);
}

void Pictures::begin(uint64_t number) { drawn_ = {number, changes_}; }

void Pictures::end() {
  const auto drawn = std::exchange(drawn_, std::nullopt);
  if (drawn && (!isRunning_ || drawn->changes != changes_)) kept_.push_back(drawn->number);
}

std::vector<Step> Pictures::removals() {
  std::vector<Step> steps;
  if (!isRunning_) return steps;
  for (const uint64_t number : std::exchange(kept_, {})) steps.push_back(removalOf(number));
  return steps;
}

}  // namespace shim
