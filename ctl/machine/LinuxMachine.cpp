#include "ctl/machine/LinuxMachine.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <filesystem>

#include "runtime/base/Descriptor.h"

extern char** environ;

namespace ctl {

namespace {

// Until its end, or `most` bytes.
rt::String readAll(int descriptor, size_t most) {
  rt::String text;
  char buffer[16 * 1024];
  while (text.size() < most) {
    const ssize_t size = read(descriptor, buffer, sizeof buffer);
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) break;
    text += std::string_view(buffer, static_cast<size_t>(size));
  }
  return text;
}

int modeOf(Machine::Access access) {
  switch (access) {
    case Machine::Access::use:
      return R_OK | W_OK;
    case Machine::Access::execute:
      return X_OK;
    case Machine::Access::exists:
      break;
  }
  return F_OK;
}

// Both its outputs lead to `output`, its input to nothing.
pid_t start(const std::vector<rt::String>& words, int output) {
  std::vector<char*> argv;
  argv.reserve(words.size() + 1);
  for (const rt::String& word : words) argv.push_back(const_cast<char*>(word.charPtr()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
  pid_t pid = -1;
  const int error = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  return error == 0 ? pid : -1;
}

constexpr size_t mostText = 4 * 1024 * 1024;

}  // namespace

int LinuxMachine::accessError(const rt::String& path, Access access) const {
  return faccessat(AT_FDCWD, path.charPtr(), modeOf(access), AT_EACCESS) == 0 ? 0 : errno;
}

int LinuxMachine::openError(const rt::String& device) const {
  const rt::Descriptor descriptor(
      open(device.charPtr(), O_RDWR | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  return descriptor ? 0 : errno;
}

std::optional<rt::String> LinuxMachine::text(const rt::String& path) const {
  const rt::Descriptor descriptor(open(path.charPtr(), O_RDONLY | O_CLOEXEC));
  if (!descriptor) return std::nullopt;
  return readAll(descriptor.number(), mostText);
}

std::vector<rt::String> LinuxMachine::names(const rt::String& directory) const {
  std::vector<rt::String> names;
  std::error_code error;
  for (std::filesystem::directory_iterator at(directory.str(), error), end; !error && at != end;
       at.increment(error))
    names.emplace_back(at->path().filename().string());
  return names;
}

std::optional<uint64_t> LinuxMachine::freeSpace(const rt::String& directory) const {
  struct statvfs facts {};
  if (statvfs(directory.charPtr(), &facts) != 0) return std::nullopt;
  return static_cast<uint64_t>(facts.f_bavail) * facts.f_frsize;
}

ProgramEnd LinuxMachine::run(const std::vector<rt::String>& words) const {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return {-1, {}};
  const rt::Descriptor out(ends[0]);
  rt::Descriptor in(ends[1]);
  const pid_t pid = start(words, in.number());
  in.reset();
  ProgramEnd end{-1, {}};
  if (pid > 0) {
    end.output = readAll(out.number(), mostText);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status)) end.status = WEXITSTATUS(status);
  }
  return end;
}

rt::String LinuxMachine::ownDirectory() const {
  char path[4096];
  const ssize_t size = readlink("/proc/self/exe", path, sizeof path);
  const std::string_view own(path, size > 0 ? static_cast<size_t>(size) : 0);
  return own.substr(0, own.rfind('/') == std::string_view::npos ? 0 : own.rfind('/'));
}

int64_t LinuxMachine::timeOfDay() const { return std::time(nullptr); }

}  // namespace ctl
