#include "host/guests/Survivors.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>

#include "guest/VmFiles.h"
#include "host/base/Report.h"
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

// The VM that the process runs; empty when it is no guest of ours. Another user's process is asked
// for nothing that lies in its memory: that could keep us waiting for as long as he likes.
rt::String guestOf(const std::string& process) {
  if (!hasOnlyOurUser(textOf(process, "/status"))) return {};
  const rt::String vm = vmOnCommandLine(textOf(process, "/cmdline"));
  const bool isGuest =
      !vm.empty() && !takesOtherUsersWhenStarted(process) && sharesRunDirectory(process);
  return isGuest ? vm : rt::String();
}

}  // namespace

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

// One of them, held by a descriptor that stays the process's, whatever becomes of its number.
class Survivors::Guest final : public rt::StateMachineOf<Survivors::Guest> {
 public:
  Guest(Survivors& owner, GuestProcess process, int pidfd, rt::Seconds killAt)
      : owner_(owner),
        process_(std::move(process)),
        isWatchedOnly_(killAt == rt::Seconds::infinity()),
        killAt_(killAt),
        pidfd_(*this, rt::make<rt::FileDescriptor>("guest " + process_.vm)) {
    pidfd_->descriptorIs(pidfd);
    pidfd_->notifyOnReadableIs(true);
    handleInitialized();
  }

  const rt::String& vm() const { return process_.vm; }
  void signal(int number) const {
    syscall(SYS_pidfd_send_signal, pidfd_->descriptor(), number, nullptr, 0);
  }
  bool isWatchedOnly() const { return isWatchedOnly_; }
  rt::Seconds killAt() const { return killAt_; }
  void killIfDue(rt::Seconds now) {
    if (now < killAt_) return;
    killAt_ = rt::Seconds::infinity();
    signal(SIGKILL);
  }

  static constexpr std::string_view typeName = "host::Survivors::Guest";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &Guest::initialized>>;

 private:
  void handleInitialized() { initializedIs(true); }
  void handleReadable() { owner_.handleGone(process_.pid); }

  Survivors& owner_;
  const GuestProcess process_;
  const bool isWatchedOnly_;
  rt::Seconds killAt_;

  rt::Reactor<Guest, rt::FileDescriptor,
              rt::On<&rt::FileDescriptor::readable, &Guest::handleReadable>>
      pidfd_;
};

Survivors::Survivors(const std::vector<GuestProcess>& guests, Shims& shims, rt::Seconds patience,
                     Sink sink, rt::Clock::Ptr clock)
    : shims_(shims),
      patience_(patience < leastPatience ? leastPatience : patience),
      sink_(std::move(sink)),
      clock_(*this, std::move(clock)) {
  handleInitialized();
  add(guests);
}

void Survivors::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
}

void Survivors::hold(const std::vector<GuestProcess>& guests, rt::Seconds killAt) {
  for (const auto& guest : guests) {
    rt::Descriptor pidfd(static_cast<int>(syscall(SYS_pidfd_open, guest.pid, 0)));
    if (!pidfd) continue;
    // Another process may have its number by now.
    if (guestOf(directoryOf(guest.pid)) == guest.vm)
      guests_[guest.pid] = rt::make<Guest>(*this, guest, pidfd.release(), killAt);
  }
}

void Survivors::add(const std::vector<GuestProcess>& guests) {
  hold(guests, clock_.notifier()->now() + patience_);
  for (const auto& guest : guests) {
    if (!guests_.contains(guest.pid)) continue;
    report("VM " + guest.vm + ": ending the guest that an earlier daemon left (process " +
           rt::toText(guest.pid) + ")");
    if (!shims_.askToStop(guest.vm)) guests_[guest.pid]->signal(SIGTERM);
    tell(guest.vm);
  }
  handleClock();
}

void Survivors::watch(const std::vector<GuestProcess>& guests) {
  hold(guests, rt::Seconds::infinity());
  for (const auto& guest : guests) tell(guest.vm);
}

void Survivors::forget(const rt::String& vm) {
  std::erase_if(guests_, [&](const auto& each) {
    return each.second->vm() == vm && each.second->isWatchedOnly();
  });
}

void Survivors::handleClock() {
  const rt::Seconds now = clock_.notifier()->now();
  rt::Seconds next = rt::Seconds::infinity();
  for (const auto& [pid, guest] : guests_) {
    guest->killIfDue(now);
    if (guest->killAt() < next) next = guest->killAt();
  }
  clock_.timeMinIs(next);
}

void Survivors::handleGone(int32_t pid) {
  const auto gone = guests_.extract(pid);
  tell(gone.mapped()->vm());
}

void Survivors::tell(const rt::String& vm) {
  const auto left = std::count_if(guests_.begin(), guests_.end(),
                                  [&](const auto& each) { return each.second->vm() == vm; });
  sink_(vm, static_cast<size_t>(left));
}

}  // namespace host
