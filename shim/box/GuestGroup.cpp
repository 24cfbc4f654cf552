#include "shim/box/GuestGroup.h"

#include <fcntl.h>
#include <linux/sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>

#include "guest/GroupText.h"
#include "shim/base/Failure.h"

namespace shim {

namespace {

constexpr uint64_t mebibyte = 1024 * 1024;

std::string textOf(const rt::Descriptor& file) {
  char text[1024];
  const ssize_t size = file ? pread(file.number(), text, sizeof text, 0) : 0;
  return {text, static_cast<size_t>(size > 0 ? size : 0)};
}

// "max" is none.
uint64_t mebibytesOf(const std::string& text) {
  uint64_t bytes = 0;
  std::from_chars(text.data(), text.data() + text.size(), bytes);
  return bytes / mebibyte;
}

rt::Descriptor openIn(const rt::Descriptor& directory, const char* file, int flags) {
  return rt::Descriptor(openat(directory.number(), file, flags | O_CLOEXEC));
}

// A machine may forbid clone3(). It takes longer, and what the process has by then is nobody's.
void enter(const rt::Descriptor& directory) {
  const rt::Descriptor processes = openIn(directory, "cgroup.procs", O_WRONLY);
  if (write(processes.number(), "0", 1) == 1) return;
  (void)!write(STDERR_FILENO, "QEMU's control group could not be entered\n", 42);
  _exit(127);
}

}  // namespace

GuestGroup::GuestGroup(const std::string& path) {
  if (path.empty()) return;
  directory_.reset(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory_) throw failureOf("QEMU's control group " + path + " could not be opened");
  events_ = openIn(directory_, "memory.events", O_RDONLY);
  limit_ = openIn(directory_, "memory.max", O_RDONLY);
  peak_ = openIn(directory_, "memory.peak", O_RDONLY);
  kill_ = openIn(directory_, "cgroup.kill", O_WRONLY);
  killsBefore_ = kills();
}

pid_t GuestGroup::fork() const {
  pid_t pid = -1;
  if (directory_) {
    clone_args arguments{};
    arguments.flags = CLONE_INTO_CGROUP;
    arguments.exit_signal = SIGCHLD;
    arguments.cgroup = static_cast<uint64_t>(directory_.number());
    pid = static_cast<pid_t>(syscall(SYS_clone3, &arguments, sizeof arguments));
    if (pid < 0 && errno != ENOSYS && errno != EPERM)
      throw failureOf("QEMU could not be started in its control group");
  }
  const bool isBornOutside = pid < 0;
  if (isBornOutside) pid = ::fork();
  if (pid < 0) throw failureOf("QEMU could not be started");
  if (pid == 0 && isBornOutside && directory_) enter(directory_);
  return pid;
}

// Where the kernel has no such file, the daemon waits for them.
void GuestGroup::endRest() const {
  if (kill_) (void)!write(kill_.number(), "1", 1);
}

std::optional<GuestGroup::Memory> GuestGroup::memory() const {
  if (!directory_) return std::nullopt;
  return Memory{mebibytesOf(textOf(limit_)), mebibytesOf(textOf(peak_)), kills() > killsBefore_};
}

uint64_t GuestGroup::kills() const { return guest::numberOf(textOf(events_), "oom_kill"); }

}  // namespace shim
