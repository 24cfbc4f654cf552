// The cards of the VMs, as far as their keepers have to tell of them.
#pragma once

#include "runtime/base/String.h"

namespace host {

// Whoever looks after all cards. Told by the VMs' keepers; throws nothing.
class VmCards {
 public:
  virtual ~VmCards() = default;
  // Has the agent's next step delete only what is the VM's: it switches the VM off, or lets it go.
  virtual void switchingOff(const rt::String& vm) = 0;
  // Clears up what that step has left, whether it went well or not.
  virtual void switchedOff(const rt::String& vm) = 0;
  // Takes note that the VM's cards may have changed, or what the VM's machine waits for.
  virtual void changed(const rt::String& vm) = 0;
};

}  // namespace host
