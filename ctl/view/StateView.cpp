#include "ctl/view/StateView.h"

#include <algorithm>
#include <array>
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
  return "{" + textMember("cause", vm.endCause()) + "," + textMember("text", vm.endText()) + "," +
         textMember("by", vm.endBy()) + ",\"failed\":" + (vm.endFailed() ? "true" : "false") + "," +
         numberMember("at", vm.endAt()) + ",\"exit\":" + rt::toText(vm.endExit()) +
         ",\"signal\":" + rt::toText(vm.endSignal()) + "}";
}

rt::String qemuJson(const model::VmProcess& vm) {
  if (vm.qemuPid() == 0) return "null";
  return "{\"pid\":" + rt::toText(vm.qemuPid()) + "," + textMember("version", vm.qemuVersion()) +
         "," + numberMember("startedAt", vm.startedAt()) +
         ",\"resets\":" + rt::toText(vm.resets()) + "}";
}

// How it is, for a sentence: "is running", "has crashed".
rt::String isSo(const rt::String& actual) {
  return actual == "crashed" ? rt::String("has crashed") : "is " + actual;
}

rt::String lastEnd(const model::VmProcess& vm, uint64_t now) {
  return "Last end: " + visible(vm.endText()) + " (" + ageText(vm.endAt(), now) + " ago)\n";
}

}  // namespace

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

rt::String sinceOf(const VmRow& row, uint64_t now) {
  const uint64_t since = row.process->since();
  return since == 0 ? rt::String() : ageText(since, now);
}

rt::String whyOf(const VmRow& row, bool isShort) {
  const model::VmProcess& vm = *row.process;
  if (!vm.why().empty()) return isShort ? vm.whyShort() : vm.why();
  // Without the daemon's word on the state, its word on what is wrong.
  if (row.problem && vm.actual().empty()) return row.problem->problem();
  return row.unreadable.empty() ? rt::String() : row.unreadable.front().text();
}

rt::String nextOf(const VmRow& row, uint64_t now, bool isShort) {
  const model::VmProcess& vm = *row.process;
  if (vm.nextKind() == "command") {
    const std::string_view command = vm.nextCommand();
    if (!isShort) return rt::String(command);
    constexpr std::string_view program = "vmctl ";
    const std::string_view verb = command.substr(std::min(program.size(), command.size()));
    return rt::String(verb.substr(0, verb.find(' ')));
  }
  if (vm.nextAt() == 0) return isShort ? rt::String() : vm.next();
  const rt::String when = inTime(vm.nextAt(), now);
  return isShort ? when : vm.next() + " " + when;
}

bool isAsWanted(const VmRow& row) {
  if (!row.config) return false;
  return row.process->actual() == (row.isEnabled() ? "running" : "stopped");
}

rt::String stateJson(const VmRow& row) {
  const model::VmProcess& vm = *row.process;
  return textMember("wanted", row.config || !row.exists() ? wantedOf(row) : rt::String()) + "," +
         textMember("actual", vm.actual()) + "," + textMember("severity", vm.severity()) + "," +
         numberMember("since", vm.since()) + ",\"why\":{" + textMember("reason", vm.reason()) +
         "," + textMember("text", whyOf(row, false)) + "," + textMember("short", whyOf(row, true)) +
         "},\"next\":{" + textMember("kind", vm.nextKind()) + "," + textMember("text", vm.next()) +
         "," + textMember("command", vm.nextCommand()) + "," + numberMember("at", vm.nextAt()) +
         "},\"attempt\":" + rt::toText(vm.attempt()) + ",\"end\":" + endJson(vm) +
         ",\"qemu\":" + qemuJson(vm);
}

rt::String whyText(const VmRow& row, uint64_t now) {
  const model::VmProcess& vm = *row.process;
  rt::String text = visible(row.name) + " is wanted " + wantedOf(row);
  if (vm.actual().empty()) return text + "; nothing is known of how it is\n";
  text += (isAsWanted(row) ? " and " : ", and ") + isSo(vm.actual()) + ", for " +
          ageText(vm.since(), now) + " (since " + localTime(vm.since()) + ")";
  const rt::String why = visible(whyOf(row, false));
  text += why.empty() ? rt::String(".\n") : ":\n  " + why + "\n";
  if (!vm.endCause().empty() && visible(vm.endText()) != why) text += lastEnd(vm, now);
  const rt::String next = visible(nextOf(row, now, false));
  if (vm.nextKind() == "command")
    text += "Next: nothing by itself. To type: " + next + "\n";
  else if (!next.empty())
    text += "Next: it " + next + "\n";
  return text;
}

}  // namespace ctl
