// Telling the service manager that handlers still run.
#pragma once

#include "runtime/entity/Reactor.h"
#include "runtime/loop/Clock.h"

namespace host {

// As often as the manager asks for, from the loop and under its lock: a handler that hangs keeps it
// from being told. Silent without a manager.
class Heartbeat final : public rt::StateMachineOf<Heartbeat> {
 public:
  explicit Heartbeat(rt::Clock::Ptr clock);

  static constexpr std::string_view typeName = "host::Heartbeat";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &Heartbeat::initialized>>;

 private:
  void handleInitialized();
  void handleClock();

  rt::ClockReactor<Heartbeat, &Heartbeat::handleClock> clock_;
};

}  // namespace host
