#include "sim/kernel/Signals.h"

namespace sim {

Signals::Fate Signals::defaultFateOf(int number) {
  switch (number) {
    case SIGCHLD:
    case SIGURG:
    case SIGWINCH:
    case SIGCONT:
      return Fate::ignored;
    case SIGSTOP:
    case SIGTSTP:
    case SIGTTIN:
    case SIGTTOU:
      return Fate::stops;
    default:
      return Fate::ends;
  }
}

Signals::Fate Signals::fateOf(int number) const {
  if (number == SIGKILL) return Fate::ends;
  if (number == SIGSTOP) return Fate::stops;
  if (isBlocked(number)) return Fate::waits;  // ignored or not
  auto* const handler = action(number).sa_handler;
  if (handler == SIG_IGN) return Fate::ignored;
  return handler == SIG_DFL ? defaultFateOf(number) : Fate::calls;
}

// One that waits already is not counted twice.
void Signals::add(const SignalInfo& info) {
  waiting_.try_emplace(info.number, info);
  came.wake();
}

std::optional<SignalInfo> Signals::take(const sigset_t& set) {
  for (auto at = waiting_.begin(); at != waiting_.end(); ++at) {
    if (sigismember(&set, at->first) != 1) continue;
    const SignalInfo info = at->second;
    waiting_.erase(at);
    return info;
  }
  return std::nullopt;
}

bool Signals::anyOf(const sigset_t& set) const {
  for (const auto& [number, info] : waiting_)
    if (sigismember(&set, number) == 1) return true;
  return false;
}

std::optional<SignalInfo> Signals::takeUnblocked() {
  sigset_t unblocked;
  sigfillset(&unblocked);
  for (int number = 1; number < NSIG; ++number)
    if (isBlocked(number)) sigdelset(&unblocked, number);
  return take(unblocked);
}

bool Signals::anyUnblocked() const {
  for (const auto& [number, info] : waiting_)
    if (!isBlocked(number)) return true;
  return false;
}

void Signals::handleExec() {
  for (auto& each : actions_)
    if (each.sa_handler != SIG_IGN) each = {};
}

}  // namespace sim
