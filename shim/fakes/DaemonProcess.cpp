#include "shim/fakes/DaemonProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "runtime/base/fakes/TestFolder.h"
#include "shim/fakes/ShimProcess.h"

namespace shim::fakes {

namespace {

void report(int to, int value) {
  if (write(to, &value, sizeof value) != sizeof value) _exit(EXIT_FAILURE);
}

int reported(const rt::Descriptor& from) {
  int value = -1;
  if (!becomesReadable(from.number())) return -1;
  return read(from.number(), &value, sizeof value) == sizeof value ? value : -1;
}

}  // namespace

DaemonProcess::DaemonProcess(const std::string& program, const std::vector<std::string>& arguments,
                             const std::map<std::string, std::string>& environment,
                             const std::string& monitorPath, Listener listener) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
  reports_.reset(ends[0]);
  pid_ = fork();
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    close(ends[0]);
    unlink(monitorPath.c_str());
    rt::Descriptor listening;
    auto told = environment;
    if (listener == Listener::handedOver) {
      listening = listenerAt(monitorPath);
      told["VMAGENT_LISTENER"] = std::to_string(listening.number());
    }
    ShimProcess shim(program, arguments, told);
    report(ends[1], shim.pid());
    const int status = shim.wait();
    listening.reset();
    unlink(monitorPath.c_str());
    report(ends[1], status);
    for (;;) pause();
  }
  close(ends[1]);
  shim_ = reported(reports_);
}

int DaemonProcess::shimStatus() { return reported(reports_); }

void DaemonProcess::kill() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  pid_ = 0;
}

namespace {

bool hasOpen(const std::filesystem::path& process, const std::string& text) {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(process / "fd", error))
    if (std::filesystem::read_symlink(entry, error).string().find(text) != std::string::npos)
      return true;
  return false;
}

}  // namespace

std::vector<pid_t> qemusWith(const std::string& text) {
  std::vector<pid_t> found;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
    const pid_t pid = std::atoi(entry.path().filename().c_str());
    if (pid <= 0) continue;
    const auto program = std::filesystem::read_symlink(entry.path() / "exe", error).string();
    if (!error && program.find("qemu-system") != std::string::npos && hasOpen(entry.path(), text))
      found.push_back(pid);
  }
  return found;
}

bool comeToBe(size_t count, const std::string& text) {
  return comesTrue([&] { return qemusWith(text).size() == count; });
}

}  // namespace shim::fakes
