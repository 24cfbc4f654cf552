// The kernel's control groups, as far as the daemon has to do with them.
#pragma once

#include <map>
#include <set>
#include <string>

#include "host/budget/MachineFiles.h"

namespace host::fakes {

// A directory below /sys/fs/cgroup comes with the files that the kernel puts there. What the group
// above does not have switched on, a group does not have.
class FakeMachineFiles final : public MachineFiles {
 public:
  FakeMachineFiles() {
    files["/sys/fs/cgroup/cgroup.controllers"] = "cpuset cpu io memory hugetlb pids\n";
    files["/sys/fs/cgroup/cgroup.subtree_control"] = "\n";
    files["/proc/self/cgroup"] = "0::/\n";
    files["/proc/1/comm"] = "init\n";
    files["/proc/meminfo"] = "MemAvailable: 8388608 kB\n";
  }

  std::map<std::string, std::string> files;
  std::map<std::string, int> errors;  // of a write into the file, or of making the directory
  std::vector<std::string> writes;    // "PATH=TEXT"
  std::set<std::string> held;         // directories that are not removed, whatever is in them

  std::string at(const std::string& path) const {
    const auto found = files.find(path);
    return found == files.end() ? "none" : found->second.substr(0, found->second.find('\n'));
  }
  bool hasDirectory(const std::string& path) const {
    return files.contains(path + "/cgroup.subtree_control");
  }
  void populate(const std::string& group, bool isPopulated) {
    files[group + "/cgroup.events"] =
        std::string("populated ") + (isPopulated ? "1" : "0") + "\nfrozen 0\n";
  }

  std::optional<rt::String> read(const rt::String& path) const override {
    const auto found = files.find(path.str());
    return found == files.end() ? std::nullopt : std::optional<rt::String>(found->second);
  }
  int write(const rt::String& path, const rt::String& text) override {
    if (const auto error = errors.find(path.str()); error != errors.end()) return error->second;
    const auto found = files.find(path.str());
    if (found == files.end()) return ENOENT;
    writes.push_back(path.str() + "=" + text.str());
    if (path.str().ends_with("subtree_control"))
      switchOn(path.str(), found->second, text.str().substr(1));
    else
      found->second = text.str() + "\n";
    return 0;
  }
  int makeDirectory(const rt::String& path) override {
    if (const auto error = errors.find(path.str()); error != errors.end()) return error->second;
    const std::string name = path.str();
    if (hasDirectory(name)) return 0;
    files[name + "/cgroup.subtree_control"] = "\n";
    files[name + "/cgroup.procs"] = "";
    files[name + "/cgroup.kill"] = "";
    populate(name, false);
    give(name);
    return 0;
  }
  int removeDirectory(const rt::String& path) override {
    if (!hasDirectory(path.str())) return ENOENT;
    if (at(path.str() + "/cgroup.events") == "populated 1") return EBUSY;
    if (held.contains(path.str())) return EBUSY;
    const std::string below = path.str() + "/";
    std::erase_if(files, [&](const auto& file) { return file.first.starts_with(below); });
    return 0;
  }
  std::vector<rt::String> directories(const rt::String& path) const override {
    std::set<std::string> names;
    const std::string below = path.str() + "/";
    for (const auto& [file, text] : files) {
      if (!file.starts_with(below)) continue;
      const std::string rest = file.substr(below.size());
      if (const size_t slash = rest.find('/'); slash != std::string::npos)
        names.insert(rest.substr(0, slash));
    }
    return {names.begin(), names.end()};
  }

 private:
  void put(const std::string& path, const std::string& text) {
    files.try_emplace(path, text + "\n");
  }
  // What a group has by what is switched on above it.
  void give(const std::string& name) {
    const std::string above = files[name.substr(0, name.rfind('/')) + "/cgroup.subtree_control"];
    if (above.find("memory") != std::string::npos) {
      for (const char* file : {"memory.max", "memory.swap.max"}) put(name + "/" + file, "max");
      for (const char* file : {"memory.min", "memory.current", "memory.oom.group"})
        put(name + "/" + file, "0");
    }
    if (above.find("cpu") != std::string::npos) {
      put(name + "/cpu.weight", "100");
      put(name + "/cpu.max", "max 100000");
    }
    if (above.find("pids") != std::string::npos) put(name + "/pids.max", "max");
    if (above.find("io") != std::string::npos) put(name + "/io.weight", "default 100");
  }
  void switchOn(const std::string& path, std::string& text, const std::string& controller) {
    text = text.substr(0, text.find('\n')) + controller + " \n";
    const std::string group = path.substr(0, path.rfind('/'));
    for (const rt::String& name : directories(group)) give(group + "/" + name.str());
  }
};

}  // namespace host::fakes
