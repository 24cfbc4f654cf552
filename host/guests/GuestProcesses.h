// What the machine's processes show of guests.
#pragma once

#include <optional>
#include <vector>

#include "host/guests/GuestProcess.h"
#include "statedb/Record.h"

namespace host {

// A look at the processes. Waits for none.
class GuestProcesses {
 public:
  virtual ~GuestProcesses() = default;
  // Returns all guests' processes, by one look; of a VM's the first is who keeps its guest.
  virtual std::vector<GuestProcess> all() const = 0;
  // Returns the name of this very process, see GuestMark.h; empty when it has gone.
  virtual rt::String nameOf(int32_t pid) const = 0;
  // Returns which row the guest was started by, or taken up by last; nothing when it shows none.
  virtual std::optional<statedb::Origin> rowOf(const GuestProcess& guest) const = 0;
  // Ends a process at once that is a child of ours, and that nobody has waited for.
  virtual void kill(int32_t child) const = 0;
};

// Those of this machine.
class KernelGuestProcesses final : public GuestProcesses {
 public:
  std::vector<GuestProcess> all() const override;
  rt::String nameOf(int32_t pid) const override;
  std::optional<statedb::Origin> rowOf(const GuestProcess& guest) const override;
  void kill(int32_t child) const override;
};

}  // namespace host
