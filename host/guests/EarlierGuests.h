// What becomes of the guests that run already when the daemon starts, or that it has lost.
#pragma once

#include <vector>

#include "host/database/Configuration.h"
#include "host/guests/GoingGuests.h"
#include "host/guests/GuestFate.h"
#include "host/guests/GuestProcesses.h"
#include "host/guests/Shims.h"
#include "host/guests/UnknownGuest.h"
#include "host/guests/WaitingGuests.h"

namespace host {

// Carries out what is decided of them.
class GuestFates {
 public:
  virtual ~GuestFates() = default;
  // Has the VM's next start take its guest up, or not any more.
  virtual void adoptableIs(const rt::String& vm, bool adoptable) = 0;
  // Has the VM's guest go on, all its processes, and be shown to be in no configuration.
  virtual void unknownIs(const std::vector<GuestProcess>& guest, const UnknownGuest& unknown) = 0;
  // That is so no more, for whatever reason.
  virtual void unknownDel(const rt::String& vm) = 0;
  virtual void end(const std::vector<GuestProcess>& guest) = 0;
};

// Looks what is so of them, decides, and has it carried out: see GuestFate.h. A guest that waits,
// or is unknown, is decided on anew whenever its VM's row is another. Owned by the daemon.
class EarlierGuests final : public GoingGuests {
 public:
  // All of it outlives this.
  struct Tools {
    const GuestProcesses& processes;
    const Shims& shims;
    const Configuration& configuration;
    statedb::StateDb& db;
    WaitingGuests& waiting;
    GuestFates& fates;
  };
  explicit EarlierGuests(const Tools& tools) : tools_(tools) {}

  // At the daemon's start, once the rows are known.
  void decide();
  // The VM is to be something else than it was, or its guest is given up. To be called before
  // anything is made of that.
  void handleRow(const rt::String& vm);

  bool decideOn(const rt::String& vm) override;
  bool end(const rt::String& vm) override;

 private:
  void forget(const rt::String& vm);
  std::vector<GuestProcess> guestsOf(const rt::String& vm) const;
  void decide(const rt::String& vm, const std::vector<GuestProcess>& guests);
  GuestFacts factsOf(const GuestProcess& keeper) const;
  bool isRemoved(const GuestProcess& keeper) const;
  const VmRow* row(const rt::String& vm) const { return tools_.configuration.rows().row(vm); }

  const Tools tools_;
};

}  // namespace host
