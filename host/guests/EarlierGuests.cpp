#include "host/guests/EarlierGuests.h"

#include <algorithm>

namespace host {

void EarlierGuests::decide() { decideOn(tools_.guests()); }

void EarlierGuests::handleRow(const rt::String& vm) {
  const auto waiting = waiting_.find(vm);
  if (waiting == waiting_.end()) return;
  const uint64_t created = waiting->second;
  waiting_.erase(waiting);
  tools_.adoptableIs(vm, false);
  std::vector<GuestProcess> guests = tools_.guests();
  std::erase_if(guests, [&](const GuestProcess& guest) { return guest.vm != vm; });
  const VmRow* const row = tools_.row(vm);
  if (row && row->created != created)
    tools_.end(guests);
  else
    decideOn(guests);
}

void EarlierGuests::decideOn(const std::vector<GuestProcess>& guests) {
  std::vector<GuestProcess> orphans;
  for (const GuestProcess& guest : guests) {
    const VmRow* const row = tools_.row(guest.vm);
    const bool isUnderstood = row && row->valid;
    if (!row || !tools_.canBeDriven(guest.vm) || (isUnderstood && !row->valid->enabled())) {
      orphans.push_back(guest);
      continue;
    }
    waiting_[guest.vm] = row->created;
    if (isUnderstood) tools_.adoptableIs(guest.vm, true);
  }
  tools_.end(orphans);
}

}  // namespace host
