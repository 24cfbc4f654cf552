#include "ctl/machine/HeldTerminal.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>

namespace ctl {

RawTerminal::RawTerminal(int descriptor) : descriptor_(descriptor) {
  if (tcgetattr(descriptor, &before_) != 0) return;
  termios raw = before_;
  cfmakeraw(&raw);
  isRaw_ = tcsetattr(descriptor, TCSADRAIN, &raw) == 0;
}

RawTerminal::~RawTerminal() {
  if (isRaw_) (void)tcsetattr(descriptor_, TCSADRAIN, &before_);
}

HeldSignals::HeldSignals() : descriptor_(hold()) {}

HeldSignals::~HeldSignals() {
  descriptor_.reset();
  // Left for the caller to meet, now that all is put back.
  if (signal_ != 0) (void)raise(signal_);
  (void)sigprocmask(SIG_SETMASK, &before_, nullptr);
}

void HeldSignals::take() {
  signalfd_siginfo info{};
  if (read(descriptor_.number(), &info, sizeof info) == sizeof info)
    signal_ = static_cast<int>(info.ssi_signo);
}

int HeldSignals::hold() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) sigaddset(&signals, signal);
  const int descriptor = signalfd(-1, &signals, SFD_CLOEXEC);
  sigaddset(&signals, SIGTSTP);
  (void)sigprocmask(SIG_BLOCK, &signals, &before_);
  return descriptor;
}

bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t size = write(descriptor, bytes.data(), bytes.size());
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(size));
  }
  return true;
}

}  // namespace ctl
