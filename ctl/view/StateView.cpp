#include "ctl/view/StateView.h"

#include <ctime>

#include "ctl/line/Json.h"
#include "runtime/base/Format.h"
#include "runtime/base/Text.h"

namespace ctl {

namespace {

constexpr uint64_t minute = 60;
constexpr uint64_t hour = 60 * minute;
constexpr uint64_t day = 24 * hour;

Ink inkOf(const rt::String& severity) {
  if (severity == "ok") return Ink::good;
  if (severity == "bad") return Ink::bad;
  return severity == "busy" ? Ink::busy : Ink::plain;
}

// "2024-11-20 20:28:43", as the clock on the wall has it.
rt::String localTime(uint64_t time) {
  const auto seconds = static_cast<time_t>(time);
  tm parts{};
  char text[32] = "";
  if (localtime_r(&seconds, &parts)) std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
  return text;
}

rt::String inTime(uint64_t at, uint64_t now) {
  return at <= now ? rt::String("now") : "in " + ageText(now, at);
}

rt::String textMember(const char* name, const rt::String& text) {
  return rt::String("\"") + name + "\":" + (text.empty() ? rt::String("null") : quoted(text));
}
rt::String numberMember(const char* name, uint64_t number) {
  return rt::String("\"") + name + "\":" + (number == 0 ? rt::String("null") : rt::toText(number));
}

rt::String endJson(const model::VmProcess& vm) {
  if (vm.endCause().empty()) return "null";
  return "{" + textMember("cause", vm.endCause()) + ",\"code\":" + rt::toText(vm.endExit()) +
         ",\"signal\":" + rt::toText(vm.endSignal()) + "," + numberMember("at", vm.endAt()) + "," +
         textMember("by", vm.endBy()) + "," + textMember("text", vm.endText()) +
         ",\"failed\":" + (vm.endFailed() ? "true" : "false") + "}";
}

// The weightiest first.
rt::String reasonsJson(const VmRow& row) {
  const rt::String text = whyOf(row, {});
  if (text.empty()) return "[]";
  const model::VmProcess& vm = *row.process;
  return "[{" + textMember("reason", vm.reason()) + "," + textMember("subject", vm.whySubject()) +
         "," + textMember("text", text) + "," +
         textMember("short", whyOf(row, {.isNarrow = true})) + "," +
         numberMember("since", vm.whySince() == 0 ? vm.since() : vm.whySince()) + "}]";
}

rt::String nextJson(const model::VmProcess& vm) {
  return "{\"kind\":" + quoted(vm.nextKind().empty() ? rt::String("none") : vm.nextKind()) + "," +
         numberMember("at", vm.nextAt()) + "," + textMember("text", vm.next()) + "," +
         textMember("short", vm.nextShort()) + "," + textMember("command", vm.nextCommand()) + "}";
}

// How it is, or was, for a sentence: "is running", "has crashed".
rt::String soText(const rt::String& actual, bool isStale) {
  if (isStale) return "was " + actual + " when vmagentd ended";
  return actual == "crashed" ? rt::String("has crashed") : "is " + actual;
}

rt::String wantedText(const VmRow& row) {
  if (row.isLeaving()) return "was removed";
  if (row.isUnknown()) return "is in no configuration";
  return row.config ? "is wanted " + wantedOf(row) : rt::String("has a row that cannot be read");
}

// What was asked for last, the daemon has not come to: what it says of the rest was so before.
bool isAhead(const VmRow& row) {
  const rt::String& known = row.process->wanted();
  const bool isRefused = row.problem && row.problem->source() == "config";
  return row.config && !known.empty() && known != wantedOf(row) && !isRefused;
}

// "when the line comes back".
bool isCondition(const rt::String& next) { return next.str().rfind("when ", 0) == 0; }

rt::String lastEnd(const model::VmProcess& vm, uint64_t now) {
  return "Last end: " + visible(vm.endText()) + " (" + ageText(vm.endAt(), now) + " ago)\n";
}

}  // namespace

Telling tellingFor(Context& context, bool isStale) {
  constexpr size_t roomForClauses = 100;
  const size_t columns = context.style().columns;
  return {context.world().timeOfDay(), columns != 0 && columns < roomForClauses, isStale};
}

rt::String wantedOf(const VmRow& row) {
  if (row.isUnknown()) return "unknown";
  if (row.isLeaving()) return "gone";
  if (!row.config) return "?";
  return row.isEnabled() ? "running" : "stopped";
}

Cell actualOf(const VmRow& row) { return {row.process->actual(), inkOf(row.process->severity())}; }

rt::String ageText(uint64_t since, uint64_t now) {
  const uint64_t age = now > since ? now - since : 0;
  const auto two = [](uint64_t great, const char* unit, uint64_t small, const char* smallUnit) {
    return rt::format("%d%s%02d%s", static_cast<int>(great), unit, static_cast<int>(small),
                      smallUnit);
  };
  if (age < minute) return rt::toText(age) + "s";
  if (age < hour) return two(age / minute, "m", age % minute, "s");
  if (age < day) return two(age / hour, "h", age % hour / minute, "m");
  if (age < 100 * day) return two(age / day, "d", age % day / hour, "h");
  return rt::toText(age / day) + "d";
}

rt::String sinceOf(const VmRow& row, const Telling& telling) {
  const uint64_t since = row.process->since();
  return since == 0 ? rt::String() : ageText(since, telling.now);
}

rt::String whyOf(const VmRow& row, const Telling& telling) {
  const model::VmProcess& vm = *row.process;
  if (telling.isStale) return "vmagentd is not running";
  if (!vm.why().empty() && telling.isNarrow) return vm.whyShort();
  // Whoever asks at no time wants to know what stays the same.
  const bool hasAge = vm.whySince() != 0 && telling.now != 0;
  if (!vm.why().empty())
    return hasAge ? vm.why() + ", for " + ageText(vm.whySince(), telling.now) : vm.why();
  // Without the daemon's word on the state, its word on what is wrong.
  if (row.problem && vm.actual().empty()) return row.problem->problem();
  return row.unreadable.empty() ? rt::String() : row.unreadable.front().text();
}

rt::String nextOf(const VmRow& row, const Telling& telling) {
  const model::VmProcess& vm = *row.process;
  if (telling.isStale) return "systemctl start vmagentd";
  if (!vm.nextCommand().empty()) return telling.isNarrow ? vm.nextShort() : vm.nextCommand();
  const rt::String text = telling.isNarrow ? vm.nextShort() : vm.next();
  return vm.nextAt() == 0 ? text : text + " " + inTime(vm.nextAt(), telling.now);
}

bool isAsWanted(const VmRow& row) {
  if (!row.config) return false;
  return row.process->actual() == (row.isEnabled() ? "running" : "stopped");
}

rt::String stateJson(const VmRow& row) {
  const model::VmProcess& vm = *row.process;
  const bool isRead = row.config || !row.exists();
  return textMember("wanted", isRead ? wantedOf(row) : rt::String()) + "," +
         textMember("actual", vm.actual()) + "," + textMember("severity", vm.severity()) + "," +
         numberMember("since", vm.since()) + ",\"reasons\":" + reasonsJson(row) +
         ",\"next\":" + nextJson(vm) + ",\"end\":" + endJson(vm) +
         ",\"attempt\":" + rt::toText(vm.attempt()) + "," + numberMember("nextAt", vm.nextAt()) +
         "," + numberMember("stopDeadline", vm.stopDeadline()) + "," +
         numberMember("pid", static_cast<uint64_t>(vm.qemuPid())) + "," +
         numberMember("startedAt", vm.startedAt()) + "," +
         textMember("qemuVersion", vm.qemuVersion()) + ",\"resets\":" + rt::toText(vm.resets());
}

rt::String whyText(const VmRow& row, const Telling& telling) {
  const model::VmProcess& vm = *row.process;
  rt::String text = visible(row.name) + " " + wantedText(row);
  if (vm.actual().empty()) return text + "; nothing is known of how it is\n";
  const bool isWell = isAsWanted(row) && !telling.isStale;
  text += (isWell ? " and " : ", and ") + soText(vm.actual(), telling.isStale) + ", for " +
          ageText(vm.since(), telling.now) + " (since " + localTime(vm.since()) + ")";
  const rt::String why = visible(whyOf(row, telling));
  text += why.empty() ? rt::String(".\n") : ":\n  " + why + "\n";
  if (!vm.endCause().empty() && visible(vm.endText()) != why) text += lastEnd(vm, telling.now);
  if (isAhead(row) && !telling.isStale)
    return text + "Next: vmagentd takes up what is wanted now\n";
  const rt::String next = visible(nextOf(row, telling));
  if (telling.isStale || !vm.nextCommand().empty())
    text += "Next: nothing by itself. To type: " + next + "\n";
  else if (!next.empty())
    text += (isCondition(next) ? "Next: it is well again " : "Next: it ") + next + "\n";
  return text;
}

}  // namespace ctl
