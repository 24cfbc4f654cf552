// Guests that an earlier daemon left.
#pragma once

#include <functional>
#include <map>
#include <vector>

#include "host/guests/GuestProcess.h"
#include "host/guests/Shims.h"
#include "runtime/entity/Reactor.h"
#include "runtime/loop/Clock.h"
#include "runtime/loop/FileDescriptor.h"

namespace host {

// Guests that nobody wants any more, or that nobody can drive: a VM may run once only. Each is
// asked to end, killed after a while, and told of when it has gone. Others are only watched.
class Survivors final : public rt::StateMachineOf<Survivors> {
 public:
  static constexpr rt::Seconds leastPatience{5};
  // How many processes of that VM are left.
  using Sink = std::function<void(const rt::String& vm, size_t left)>;

  // `patience`: how long they may take. `shims` outlive it.
  Survivors(const std::vector<GuestProcess>& guests, Shims& shims, rt::Seconds patience, Sink sink,
            rt::Clock::Ptr clock);

  // Further ones, watched until now perhaps.
  void add(const std::vector<GuestProcess>& guests);
  // Guests that go on.
  void watch(const std::vector<GuestProcess>& guests);
  // Watches those of that VM no more. Nothing is told.
  void forget(const rt::String& vm);
  size_t left() const { return guests_.size(); }

  static constexpr std::string_view typeName = "host::Survivors";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &Survivors::initialized>>;

 private:
  class Guest;

  void handleInitialized();
  void handleClock();
  void handleGone(int32_t pid);
  void hold(const std::vector<GuestProcess>& guests, rt::Seconds killAt);
  void tell(const rt::String& vm);

  Shims& shims_;
  const rt::Seconds patience_;
  const Sink sink_;
  std::map<int32_t, rt::Ptr<Guest>> guests_;  // by pid

  rt::ClockReactor<Survivors, &Survivors::handleClock> clock_;
};

}  // namespace host
