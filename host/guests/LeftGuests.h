// The guests that an earlier daemon left, as they go on or end.
#pragma once

#include "host/guests/EarlierGuests.h"
#include "host/guests/Survivors.h"
#include "host/guests/VmSupervisor.h"

namespace host {

// Carries out what EarlierGuests decides: tells the VMs' keepers, watches the processes that no
// keeper has, and clears up once a VM has none of them left. Owned by the daemon.
class LeftGuests final : public GuestFates {
 public:
  // `tools`, and what they name, outlive it.
  LeftGuests(VmSupervisor::Ptr supervisor, const KeeperTools& tools, const rt::Clock::Ptr& clock);

  void adoptableIs(const rt::String& vm, bool adoptable) override;
  void unknownIs(const std::vector<GuestProcess>& guest, const UnknownGuest& unknown) override;
  void unknownDel(const rt::String& vm) override;
  void end(const std::vector<GuestProcess>& guest) override;
  // How many of the VM's processes are left. Called by Survivors.
  void leftIs(const rt::String& vm, size_t count);

 private:
  void leaves(const std::vector<GuestProcess>& guest);

  const VmSupervisor::Ptr supervisor_;
  const KeeperTools& tools_;
  const Survivors::Ptr survivors_;
};

}  // namespace host
