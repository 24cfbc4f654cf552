// A VM that is about to be started.
#pragma once

#include "statedb/Record.h"

namespace host {

// What the start's processes are told of it.
struct VmStart {
  rt::String vm;
  statedb::Origin row;       // where its row was made
  rt::String imageFormat{};  // what its disk image is opened as; empty: it is not known
  rt::String group{};        // where its QEMU is born; empty: anywhere
};

// Stands around the agent's start of a VM, and its guest's end. Told by the VMs' keepers.
class AroundStart {
 public:
  virtual ~AroundStart() = default;
  // Prepares the start. Throws when the VM cannot be started: it is tried again then.
  virtual void before(const VmStart& start) = 0;
  // Clears up; called once before() has returned, whatever came of the start.
  virtual void after() = 0;
  // Takes note that the VM has no process any more, and the agent knows it.
  virtual void ended(const rt::String& vm) = 0;
};

}  // namespace host
