#include "host/guests/Survivors.h"

#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "host/base/Report.h"
#include "host/guests/ProcessText.h"
#include "runtime/base/Descriptor.h"
#include "runtime/base/Text.h"

namespace host {

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
    if (!shims_.askToStop(guest.vm, std::nullopt)) guests_[guest.pid]->signal(SIGTERM);
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
