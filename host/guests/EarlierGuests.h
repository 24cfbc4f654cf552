// What becomes of the guests that run already when the daemon starts.
#pragma once

#include <functional>
#include <vector>

#include "host/database/VmRows.h"
#include "host/guests/GuestFate.h"
#include "host/guests/Shims.h"
#include "host/guests/Survivors.h"
#include "host/guests/WaitingGuests.h"

namespace host {

// Asks what is so of them, decides, and has it carried out: see GuestFate.h. A guest that waits, or
// is unknown, is decided on anew whenever its VM's row is another. Owned by the daemon.
class EarlierGuests {
 public:
  struct Tools {
    // One look at all processes; of a VM's the first is who keeps its guest.
    std::function<std::vector<GuestProcess>()> guests;
    // Null when there is none.
    std::function<const VmRow*(const rt::String& vm)> row;
    // As in GuestFacts.
    std::function<bool(const GuestProcess&)> isRemoved;
    std::function<bool(const GuestProcess&)> isGivenUp;
    // Whether the VM's next start takes its guest up.
    std::function<void(const rt::String& vm, bool)> adoptableIs;
    // The VM's guest goes on though its VM is unknown; none: that is so no more.
    std::function<void(const rt::String& vm, const std::vector<GuestProcess>&)> unknownIs;
    std::function<void(const std::vector<GuestProcess>&)> end;
  };
  // `shims` and `waiting` outlive it.
  EarlierGuests(const Shims& shims, WaitingGuests& waiting, Tools tools)
      : shims_(shims), waiting_(waiting), tools_(std::move(tools)) {}

  // At the daemon's start, once the rows are known.
  void decide();
  // The VM is to be something else than it was, or its guest is given up. To be called before
  // anything is made of that.
  void handleRow(const rt::String& vm);

 private:
  void decideOn(const rt::String& vm, const std::vector<GuestProcess>& guests);
  GuestFacts factsOf(const GuestProcess& keeper) const;

  const Shims& shims_;
  WaitingGuests& waiting_;
  const Tools tools_;
};

}  // namespace host
