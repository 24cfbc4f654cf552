#include "host/guests/EarlierGuests.h"

#include <map>

namespace host {

void EarlierGuests::decide() {
  std::map<rt::String, std::vector<GuestProcess>> all;
  for (const GuestProcess& guest : tools_.guests()) all[guest.vm].push_back(guest);
  for (const auto& [vm, guests] : all) decideOn(vm, guests);
}

void EarlierGuests::handleRow(const rt::String& vm) {
  const auto before = waiting_.take(vm);
  if (!before) return;
  tools_.adoptableIs(vm, false);
  tools_.unknownIs(vm, {});
  std::vector<GuestProcess> guests = tools_.guests();
  std::erase_if(guests, [&](const GuestProcess& guest) { return guest.vm != vm; });
  const VmRow* const row = tools_.row(vm);
  // Seen to be removed; that is forgotten with the row, and the guest may have been told nothing.
  if (*before != 0 && (!row || row->vm != *before))
    tools_.end(guests);
  else
    decideOn(vm, guests);
}

GuestFacts EarlierGuests::factsOf(const GuestProcess& keeper) const {
  GuestFacts facts;
  const VmRow* const row = tools_.row(keeper.vm);
  if (row && row->valid)
    facts.row = row->valid->enabled() ? RowWord::on : RowWord::off;
  else if (row && !row->isLost)
    facts.row = RowWord::unclear;
  facts.isRemoved = tools_.isRemoved(keeper);
  facts.isGivenUp = tools_.isGivenUp(keeper);
  facts.canBeDriven = shims_.isThere(keeper.vm);
  return facts;
}

void EarlierGuests::decideOn(const rt::String& vm, const std::vector<GuestProcess>& guests) {
  if (guests.empty()) return;
  const GuestFate fate = fateOf(factsOf(guests.front()));
  if (fate == GuestFate::ends) return tools_.end(guests);
  const VmRow* const row = tools_.row(vm);
  waiting_.waits(vm, row ? row->vm : 0);
  if (fate == GuestFate::takenUp) tools_.adoptableIs(vm, true);
  if (fate == GuestFate::unknown) tools_.unknownIs(vm, guests);
}

}  // namespace host
