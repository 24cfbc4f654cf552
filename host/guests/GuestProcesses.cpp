#include "host/guests/GuestProcesses.h"

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

}  // namespace host
