#include "host/service/Signals.h"

#include <pthread.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>

#include "runtime/base/Exception.h"

namespace host {

namespace {

sigset_t endingSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGINT);
  return set;
}

// In a forked child: only calls that are safe there.
void restoreSignals() {
  signal(SIGPIPE, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace

void prepareSignals() {
  signal(SIGPIPE, SIG_IGN);
  const sigset_t set = endingSignals();
  sigprocmask(SIG_BLOCK, &set, nullptr);
  pthread_atfork(nullptr, nullptr, restoreSignals);
}

Signals::Signals(std::function<void()> stop)
    : stop_(std::move(stop)), descriptor_(*this, rt::make<rt::FileDescriptor>("signals")) {
  handleInitialized();
}

void Signals::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
  const sigset_t set = endingSignals();
  const int signals = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
  // They wait for nobody else: such a daemon could only be killed.
  if (signals < 0) throw rt::ErrnoException(errno, "signals cannot be read");
  descriptor_->descriptorIs(signals);
  descriptor_->notifyOnReadableIs(true);
}

void Signals::handleSignal() {
  signalfd_siginfo info{};
  if (read(descriptor_->descriptor(), &info, sizeof info) == sizeof info) stop_();
}

}  // namespace host
