// What a guest finds when the agent starts it.
#pragma once

#include <memory>

#include "host/Options.h"
#include "host/guests/VmStart.h"
#include "host/service/ChildEnvironment.h"
#include "host/service/MonitorListener.h"
#include "host/service/ShimMount.h"

namespace host {

// Returns the program to put in QEMU's place; empty where none is wanted. Throws Exception when
// there is none.
rt::String shimOf(const Options& options);

// The shim in QEMU's place, the environment of guests' processes, and the socket at which the agent
// finds a new guest. Owned by main(), for the length of its run.
class GuestLaunch final : public AroundStart {
 public:
  // Moves the process to namespaces of its own, where it needs any: to be made before there are
  // threads. Throws Exception, which says what is missing.
  explicit GuestLaunch(const Options& options);

  // Removes what a daemon that was killed has left. No other may run.
  void removeLeftover() const { listener_.removeLeftover(); }

  void before(const VmStart& start) override;
  void after() override { listener_.settle(); }
  void ended(const rt::String& vm) override;

 private:
  const std::unique_ptr<ShimMount> shim_;  // null: guests have none
  ChildEnvironment environment_;
  MonitorListener listener_;
};

}  // namespace host
