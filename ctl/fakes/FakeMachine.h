// A machine that is as the test says; at first all is well with it.
#pragma once

#include <map>
#include <set>
#include <string>

#include "ctl/machine/Machine.h"

namespace ctl::fakes {

class FakeMachine final : public Machine {
 public:
  int accessError(const rt::String& path, Access access) const override {
    const auto found = accessErrors.find(path.str());
    if (found == accessErrors.end()) return 0;
    return access == Access::exists && found->second != ENOENT ? 0 : found->second;
  }
  int openError(const rt::String& device) const override {
    const auto found = openErrors.find(device.str());
    return found == openErrors.end() ? 0 : found->second;
  }
  std::optional<rt::String> text(const rt::String& path) const override {
    const auto found = texts.find(path.str());
    return found == texts.end() ? std::nullopt : std::optional<rt::String>(found->second);
  }
  // Of what `texts` has below it.
  std::vector<rt::String> names(const rt::String& directory) const override {
    std::set<std::string> found;
    const std::string path = directory.str() + "/";
    for (const auto& [name, text] : texts)
      if (name.starts_with(path))
        found.insert(name.substr(path.size(), name.find('/', path.size()) - path.size()));
    return {found.begin(), found.end()};
  }
  std::optional<uint64_t> freeSpace(const rt::String& directory) const override {
    return directory == "/run/vmagent" ? freeRun : free;
  }
  ProgramEnd run(const std::vector<rt::String>& words) const override {
    rt::String command;
    for (const rt::String& word : words) (command += command.empty() ? "" : " ") += word;
    const auto found = programs.find(command.str());
    return found == programs.end() ? ProgramEnd{-1, ""} : found->second;
  }
  rt::String ownDirectory() const override { return "/usr/bin"; }
  int64_t timeOfDay() const override { return time; }

  std::map<std::string, int> accessErrors;  // by path: of all uses, or of all but existence
  std::map<std::string, int> openErrors;
  std::map<std::string, std::string> texts{
      {"/proc/cpuinfo", "processor\t: 0\nflags\t\t: fpu vme vmx smx\n"},
      {"/proc/devices", "Character devices:\n  1 mem\n246 macvtap\n\nBlock devices:\n"},
      {"/proc/sys/kernel/osrelease", "6.1.0-44-amd64\n"},
      {"/proc/mounts", "/dev/sda1 / ext4 rw 0 0\nudev /dev devtmpfs rw 0 0\n"}};
  std::map<std::string, ProgramEnd> programs{
      {"/usr/bin/qemu-system-x86_64 --version",
       {0, "QEMU emulator version 7.2.22 (Debian 1:7.2)\nCopyright\n"}},
      {"/usr/bin/vmagentd --check --shim off", {0, ""}}};
  uint64_t free = 12ULL << 30U;
  uint64_t freeRun = 12ULL << 30U;
  int64_t time = 1732186123;
};

}  // namespace ctl::fakes
