#include "ctl/view/EventView.h"

#include "ctl/line/Json.h"
#include "ctl/line/Moments.h"
#include "ctl/view/StateView.h"
#include "runtime/base/Format.h"
#include "runtime/base/Text.h"

namespace ctl {

namespace {

namespace kind = model::eventKind;

constexpr uint64_t second = 1000;  // ms

// In a word: what it has become, or what it is of.
rt::String whatOf(const model::Event& event) {
  if (event.kind() == kind::state) return event.reason();
  if (event.kind() == kind::end) return "ended";
  return event.kind();
}

Ink inkOf(const rt::String& severity) {
  if (severity == "ok") return Ink::good;
  if (severity == "bad") return Ink::bad;
  return severity == "busy" ? Ink::busy : Ink::plain;
}

rt::String textOf(const model::Event& event) {
  if (event.count() < 2) return event.text();
  return event.text() + ", ×" + rt::toText(event.count()) + " in " +
         ageText(event.first() / second, event.at() / second);
}

rt::String authorOf(const model::Event& event) {
  if (event.via().empty()) return event.by();
  return (event.by().empty() ? rt::String() : event.by() + " ") + "(" + event.via() + ")";
}

rt::String timeJson(uint64_t milliseconds) {
  return rt::format("%ju.%03ju", static_cast<uintmax_t>(milliseconds / second),
                    static_cast<uintmax_t>(milliseconds % second));
}

rt::String textMember(const char* name, const rt::String& text) {
  return rt::String(",\"") + name + "\":" + (text.empty() ? rt::String("null") : quoted(text));
}

}  // namespace

Table eventTable(bool isOfAll) {
  if (isOfAll) return {{"TIME", "VM", "WHAT", "TEXT", "BY"}, 3};
  return {{"TIME", "WHAT", "TEXT", "BY"}, 2};
}

std::vector<Cell> eventCells(const model::Event& event, bool isOfAll, uint64_t now) {
  std::vector<Cell> cells{clockText(event.at() / second, now)};
  if (isOfAll) cells.emplace_back(event.vm());
  cells.emplace_back(whatOf(event), inkOf(event.severity()));
  cells.emplace_back(textOf(event));
  cells.emplace_back(authorOf(event));
  return cells;
}

rt::String eventJson(const model::Event& event) {
  return R"({"seq":)" + rt::toText(event.seq()) + R"(,"id":)" + rt::toText(event.id()) +
         R"(,"at":)" + timeJson(event.at()) + R"(,"first":)" + timeJson(event.first()) +
         R"(,"count":)" + rt::toText(event.count()) + textMember("vm", event.vm()) +
         textMember("kind", event.kind()) + textMember("reason", event.reason()) +
         textMember("severity", event.severity()) + textMember("subject", event.subject()) +
         textMember("text", event.text()) + textMember("by", event.by()) +
         textMember("via", event.via()) + "}";
}

}  // namespace ctl
