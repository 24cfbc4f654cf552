// The cards of the VMs, as far as those who start and end guests have to tell of them.
#pragma once

#include <cstdint>

#include "runtime/base/String.h"

namespace host {

// Whoever looks after all cards. Told by the VMs' keepers, and by who ends the guests of an earlier
// daemon. Throws nothing where it does not say so.
class VmCards {
 public:
  virtual ~VmCards() = default;
  // Has the agent's next step delete only what is the VM's: it switches the VM off, or lets it go.
  virtual void switchingOff(const rt::String& vm) = 0;
  // Clears up what that step has left, whether it went well or not.
  virtual void switchedOff(const rt::String& vm) = 0;
  // Takes note that the VM's cards may have changed, or what the VM's machine waits for.
  virtual void changed(const rt::String& vm) = 0;
  // Makes room for the devices that the agent makes for a guest that it has just taken up: a second
  // one of a card's address could not go up beside the first. The agent makes it as soon as the
  // guest's shim has answered it; until now the first served the guest. Throws where the kernel
  // does not answer.
  virtual void tookUp(const rt::String& vm) = 0;
  // Notes what an earlier daemon's guest has, while this process of it runs: no card of the agent's
  // remembers the devices of a guest that it was never given.
  virtual void guestLeaves(const rt::String& vm, int32_t pid) = 0;
  // Clears up what that guest has left.
  virtual void guestLeft(const rt::String& vm) = 0;
};

}  // namespace host
