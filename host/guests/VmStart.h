// A VM that is about to be started.
#pragma once

#include <functional>

#include "statedb/Record.h"

namespace host {

// What the start's processes are told of it.
struct VmStart {
  rt::String vm;
  statedb::Origin row;       // where its row was made
  rt::String imageFormat{};  // what its disk image is opened as; empty: it is not known
};

// What stands around the agent's start of a VM, and its guest's end.
struct AroundStart {
  // Throws when the VM cannot be started: it is tried again then.
  std::function<void(const VmStart&)> before;
  // To be called once `before` has returned, whatever came of the start.
  std::function<void()> after;
  // The VM has no process any more, and the agent knows it.
  std::function<void(const rt::String& vm)> ended;
};

}  // namespace host
