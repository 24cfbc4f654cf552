#include "host/guests/GuestProcesses.h"

#include <signal.h>

#include "host/guests/GuestMark.h"

namespace host {

std::vector<GuestProcess> KernelGuestProcesses::all() const {
  auto guests = guestProcesses();
  sortByAge(guests);
  return guests;
}

rt::String KernelGuestProcesses::nameOf(int32_t pid) const { return guestName(pid); }

std::optional<statedb::Origin> KernelGuestProcesses::rowOf(const GuestProcess& guest) const {
  return host::rowOf(guest);
}

// The number is its own until it is waited for.
void KernelGuestProcesses::kill(int32_t child) const {
  if (child > 0) (void)::kill(child, SIGKILL);
}

}  // namespace host
