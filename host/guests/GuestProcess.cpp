#include "host/guests/GuestProcess.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <utility>

#include "guest/VmFiles.h"
#include "host/guests/ProcessText.h"
#include "runtime/base/Descriptor.h"
#include "runtime/base/Text.h"

namespace host {

namespace {

constexpr std::string_view optionBegin = "socket,id=monitor,path=";
constexpr std::string_view optionEnd = ",server,nowait";

// What /var/run is to a process: its links are to be followed from its root and not from ours.
std::optional<std::pair<dev_t, ino_t>> runDirectoryOf(const std::string& process) {
  const rt::Descriptor root(open((process + "/root").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!root) return std::nullopt;
  open_how how{};
  how.flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
  how.resolve = RESOLVE_IN_ROOT;
  const rt::Descriptor directory(
      static_cast<int>(syscall(SYS_openat2, root.number(), "var/run", &how, sizeof how)));
  struct stat info {};
  if (!directory || fstat(directory.number(), &info) != 0) return std::nullopt;
  return std::pair(info.st_dev, info.st_ino);
}

// Whether the process has our /var/run, and so would own our monitors' paths.
bool sharesRunDirectory(const std::string& process) {
  const auto own = runDirectoryOf("/proc/self");
  return own && own == runDirectoryOf(process);
}

// "Uid:\t0\t0\t0\t0\n": the real, effective and saved user, and that of its files.
bool hasOnlyOurUser(const std::string& status) {
  const std::string own = "\t" + rt::toText(geteuid()).str();
  return status.find("\nUid:" + own + own + own + own + "\n") != std::string::npos;
}

bool takesOtherUsersWhenStarted(const std::string& process) {
  struct stat program {};
  return stat((process + "/exe").c_str(), &program) != 0 ||
         (program.st_mode & (S_ISUID | S_ISGID)) != 0;
}

}  // namespace

rt::String guestOf(const std::string& process) {
  if (!hasOnlyOurUser(textOf(process, "/status"))) return {};
  const rt::String vm = vmOnCommandLine(textOf(process, "/cmdline"));
  const bool isGuest =
      !vm.empty() && !takesOtherUsersWhenStarted(process) && sharesRunDirectory(process);
  return isGuest ? vm : rt::String();
}

rt::String vmOnCommandLine(std::string_view commandLine) {
  if (commandLine.substr(0, commandLine.find('\0')) != guest::qemuPath) return {};
  for (size_t at = 0; at < commandLine.size();) {
    const std::string_view word = commandLine.substr(at, commandLine.find('\0', at) - at);
    at += word.size() + 1;
    if (word.size() < optionBegin.size() + optionEnd.size() || !word.starts_with(optionBegin) ||
        !word.ends_with(optionEnd))
      continue;
    const std::string_view vm = guest::vmOfMonitor(
        word.substr(optionBegin.size(), word.size() - optionBegin.size() - optionEnd.size()));
    if (!vm.empty()) return rt::String(vm);
  }
  return {};
}

std::vector<GuestProcess> guestProcesses() {
  std::vector<GuestProcess> guests;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
    const auto pid = rt::fromText<int32_t>(entry.path().filename().string());
    if (!pid) continue;
    if (const rt::String vm = guestOf(entry.path().string()); !vm.empty())
      guests.push_back({vm, *pid});
  }
  return guests;
}

}  // namespace host
