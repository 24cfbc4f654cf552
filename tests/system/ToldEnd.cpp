#include "tests/system/ToldEnd.h"

#include <ctime>
#include <regex>

namespace host::fakes {

namespace {

// The last match's group; empty without one.
std::string lastOf(const std::string& text, const std::string& pattern) {
  std::string found;
  const std::regex regex(pattern);
  for (std::sregex_iterator at(text.begin(), text.end(), regex), end; at != end; ++at)
    found = (*at)[1];
  return found;
}

// Collects what is otherwise than it should be.
class Findings {
 public:
  void same(const char* road, const std::string& found, const std::string& expected) {
    if (found != expected)
      all_ += std::string(road) + ": '" + found + "', not '" + expected + "'\n";
  }
  void has(const char* road, const std::string& text, const std::string& part) {
    if (text.find(part) == std::string::npos)
      all_ += std::string(road) + ": no '" + part + "' in " + text + "\n";
  }
  const std::string& all() const { return all_; }

 private:
  std::string all_;
};

}  // namespace

uint64_t timeOfDay() { return static_cast<uint64_t>(std::time(nullptr)); }

std::string wrongIn(const DaemonWorld& world, const std::string& vm, const ToldEnd& end) {
  Findings findings;
  const auto ofJson = [&](const char* road, const std::string& text) {
    const std::string json = lastOf(text, R"re("end": *(\{[^}]*\}))re");
    findings.same(road, lastOf(json, R"re("cause": *"([^"]*)")re"), end.cause);
    findings.same(road, lastOf(json, R"re("by": *"([^"]*)")re"), end.author);
    findings.has(road, json, end.text);
    return lastOf(json, R"re("at": *([0-9]+))re");
  };
  const std::string at = ofJson("why -o json", world.vmctl({"why", vm, "-o", "json"}).out);
  const uint64_t when = at.empty() ? 0 : std::stoull(at);
  if (when < end.from || when > end.to)
    findings.same("time", at, std::to_string(end.from) + " to " + std::to_string(end.to));

  const std::string list = world.vmctl({"list", "-o", "json"}).out;
  const size_t name = list.find("\"name\": \"" + vm + "\"");
  const size_t next = list.find("\"name\": \"", name == std::string::npos ? name : name + 1);
  findings.same("list -o json",
                ofJson("list -o json", list.substr(std::min(name, list.size()),
                                                   next == std::string::npos ? next : next - name)),
                at);
  findings.has("list", world.vmctl({"list"}).out, vm);
  findings.has("why", world.vmctl({"why", vm}).out, end.text);

  const std::string history = world.vmctl({"history", vm, "-o", "json"}).out;
  const std::string event = lastOf(history, R"re((\{[^{}]*"kind":"end"[^{}]*\}))re");
  findings.same("history", lastOf(event, R"re("reason":"([^"]*)")re"), end.cause);
  findings.same("history", lastOf(event, R"re("by": *"([^"]*)")re"), end.author);
  findings.same("history", lastOf(event, R"re("at":([0-9]+)\.)re"), at);
  findings.has("history", world.vmctl({"history", vm}).out, end.text);

  const std::string metric =
      "\nvmagent_vm_last_end_timestamp_seconds\\{vm=\"" + vm + "\",cause=\"([^\n]*)";
  findings.same("metrics", lastOf(world.vmctl({"metrics"}).out, metric), end.cause + "\"} " + at);
  return findings.all();
}

}  // namespace host::fakes
