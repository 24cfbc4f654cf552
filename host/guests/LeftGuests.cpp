#include "host/guests/LeftGuests.h"

#include "host/base/Report.h"

namespace host {

LeftGuests::LeftGuests(VmSupervisor::Ptr supervisor, const KeeperTools& tools,
                       const rt::Clock::Ptr& clock)
    : supervisor_(std::move(supervisor)),
      tools_(tools),
      survivors_(rt::make<Survivors>(
          std::vector<GuestProcess>{}, tools.shims, tools.stopPatience,
          [this](const rt::String& vm, size_t left) { leftIs(vm, left); }, clock)) {}

void LeftGuests::adoptableIs(const rt::String& vm, bool adoptable) {
  supervisor_->adoptableIs(vm, adoptable);
}

void LeftGuests::unknownIs(const std::vector<GuestProcess>& guest, const UnknownGuest& unknown) {
  const rt::String& vm = guest.front().vm;
  leaves(guest);
  survivors_->watch(guest);
  supervisor_->unknownIs(vm, unknown);
  report("VM " + vm + ": " + problemOf(vm, unknown));
}

void LeftGuests::unknownDel(const rt::String& vm) {
  survivors_->forget(vm);
  supervisor_->survivorsIs(vm, 0);
}

void LeftGuests::end(const std::vector<GuestProcess>& guest) {
  leaves(guest);
  survivors_->add(guest);
}

void LeftGuests::leftIs(const rt::String& vm, size_t count) {
  if (count == 0) {
    tools_.start.ended(vm);
    tools_.shims.removeDeadSockets(vm);
    tools_.cards.guestLeft(vm);
  }
  supervisor_->survivorsIs(vm, count);
}

void LeftGuests::leaves(const std::vector<GuestProcess>& guest) {
  for (const GuestProcess& process : guest) tools_.cards.guestLeaves(process.vm, process.pid);
}

}  // namespace host
