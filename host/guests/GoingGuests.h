// Guests that go on though the process has ended that the agent has for them.
#pragma once

#include "runtime/base/String.h"

namespace host {

// What becomes of such a guest. Told by the VMs' keepers.
class GoingGuests {
 public:
  virtual ~GoingGuests() = default;
  // Decides on the VM's guest anew, as on one of an earlier daemon's. False: there is none.
  virtual bool decideOn(const rt::String& vm) = 0;
  // Ends the VM's guest, whatever is wanted of the VM. False: there is none.
  virtual bool end(const rt::String& vm) = 0;
};

}  // namespace host
