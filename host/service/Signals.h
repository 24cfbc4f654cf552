// The signals that concern the daemon.
#pragma once

#include <functional>

#include "runtime/entity/Reactor.h"
#include "runtime/loop/FileDescriptor.h"

namespace host {

// For main(), before there are threads: SIGTERM and SIGINT wait for Signals, SIGPIPE is ignored,
// and what a child executes starts with neither.
void prepareSignals();

// Calls `stop` when the daemon is to end.
class Signals final : public rt::StateMachineOf<Signals> {
 public:
  explicit Signals(std::function<void()> stop);

  static constexpr std::string_view typeName = "host::Signals";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &Signals::initialized>>;

 private:
  void handleInitialized();
  void handleSignal();

  const std::function<void()> stop_;

  rt::Reactor<Signals, rt::FileDescriptor,
              rt::On<&rt::FileDescriptor::readable, &Signals::handleSignal>>
      descriptor_;
};

}  // namespace host
