#include "host/budget/GuestsGroup.h"

#include <array>
#include <cstring>

#include "guest/GroupText.h"
#include "host/budget/GroupValues.h"
#include "runtime/base/Text.h"

namespace host {

namespace {

constexpr const char* root = "/sys/fs/cgroup";
constexpr std::array controllers{"memory", "cpu", "io", "pids"};
constexpr std::string_view ownUnit = "/vmagentd.service";
constexpr const char* guestsUnit = "/vmagent-guests.service";
constexpr const char* ownRoot = "/vmagent";
// For daemon and shims, where no unit says so.
constexpr const char* weightOfOurs = "1000";
constexpr uint64_t memoryOfOurs = 64;  // mebibytes

// Of "0::/system.slice/vmagentd.service", a line of several where version 1 is there, too.
rt::String ownGroup(const MachineFiles& files) {
  const rt::String all = files.read("/proc/self/cgroup").value_or("");
  const std::string& text = all.str();
  const size_t begin = text.rfind("0::/", 0) == 0 ? 0 : text.find("\n0::/");
  if (begin == std::string::npos) return {};
  const size_t at = text.find("::", begin) + 2;
  return text.substr(at, text.find('\n', at) - at);
}

// Each by itself: one that is not there must not keep the others away.
void enableControllers(MachineFiles& files, const rt::String& group) {
  for (const char* const each : controllers)
    (void)files.write(group + "/cgroup.subtree_control", rt::String("+") + each);
}

bool bounds(const MachineFiles& files, const rt::String& group) {
  return guest::hasWord(files.read(group + "/cgroup.subtree_control").value_or("").str(), "memory");
}

void put(MachineFiles& files, const rt::String& group, const std::vector<GroupValue>& values) {
  for (const auto& [file, text] : values) {
    const auto now = files.read(group + "/" + file);
    if (now && *now != text + "\n") (void)files.write(group + "/" + file, text);
  }
}

rt::String couldNot(const rt::String& path, const char* be, int error) {
  return path + " could not be " + be + ": " + std::strerror(error);
}

// Where nobody else divides the machine. Returns what is wrong.
rt::String makeOwnRoot(MachineFiles& files, const rt::String& base, int32_t pid) {
  const rt::String ours = base + "/daemon";
  for (const rt::String& each : {base, ours})
    if (const int error = files.makeDirectory(each)) return couldNot(each, "made", error);
  if (const int error = files.write(ours + "/cgroup.procs", rt::toText(pid)))
    return couldNot(ours, "entered", error);
  // Below a group that has processes none is bounded, but for the machine's root.
  enableControllers(files, root);
  enableControllers(files, base);
  (void)files.write(ours + "/cpu.weight", weightOfOurs);
  (void)files.write(ours + "/memory.min", rt::toText(memoryOfOurs << 20U));
  (void)files.write(base + "/memory.min", rt::toText(memoryOfOurs << 20U));
  return {};
}

GuestsGroup placeOf(MachineFiles& files, int32_t pid) {
  const auto known = files.read(rt::String(root) + "/cgroup.controllers");
  if (!known) return {{}, "the machine has no control groups of version 2"};
  if (!guest::hasWord(known->str(), "memory"))
    return {{}, "the machine's control groups of version 2 do not bound memory"};
  const std::string own = ownGroup(files).str();
  if (own.ends_with(ownUnit))
    return {root + own.substr(0, own.size() - ownUnit.size()) + guestsUnit, {}};
  if (files.read("/proc/1/comm").value_or("") == "systemd\n")
    return {{}, "vmagentd is not started by its unit, and systemd divides the machine"};
  if (own != "/" && own != std::string(ownRoot) + "/daemon")
    return {{}, "vmagentd is in the control group " + rt::String(own) + ", which is another's"};
  const rt::String base = rt::String(root) + ownRoot;
  return {base, makeOwnRoot(files, base, pid)};
}

}  // namespace

GuestsGroup makeGuestsGroup(MachineFiles& files, const GuestsShare& share, int32_t pid) {
  const GuestsGroup base = placeOf(files, pid);
  if (!base.trouble.empty()) return {{}, base.trouble};
  for (const rt::String& each : {base.path, base.path + "/guests"})
    if (const int error = files.makeDirectory(each)) return {{}, couldNot(each, "made", error)};
  const rt::String path = base.path + "/guests";
  const rt::String trouble = renewGuestsGroup(files, path, share);
  return trouble.empty() ? GuestsGroup{path, {}} : GuestsGroup{{}, trouble};
}

rt::String renewGuestsGroup(MachineFiles& files, const rt::String& path, const GuestsShare& share) {
  const rt::String base = path.substr(0, path.str().rfind('/'));
  for (const rt::String& each : {base, path})
    if (!bounds(files, each)) enableControllers(files, each);
  if (!bounds(files, path)) return path + " cannot bound the memory of guests";
  // systemd has taken away the empty group of the unit, and with it its weight.
  put(files, base, weightsOfAll());
  put(files, path, valuesOfAll(share.memory, share.processors));
  return {};
}

}  // namespace host
