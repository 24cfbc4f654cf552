#include "host/guests/EarlierGuests.h"

#include <map>

#include "host/base/Report.h"
#include "model/Tables.h"

namespace host {

void EarlierGuests::decide() {
  std::map<rt::String, std::vector<GuestProcess>> all;
  for (const GuestProcess& guest : tools_.processes.all()) all[guest.vm].push_back(guest);
  for (const auto& [vm, guests] : all) decide(vm, guests);
}

// All that was decided on it.
void EarlierGuests::forget(const rt::String& vm) {
  tools_.fates.adoptableIs(vm, false);
  tools_.fates.unknownDel(vm);
}

std::vector<GuestProcess> EarlierGuests::guestsOf(const rt::String& vm) const {
  std::vector<GuestProcess> guests = tools_.processes.all();
  std::erase_if(guests, [&](const GuestProcess& guest) { return guest.vm != vm; });
  return guests;
}

bool EarlierGuests::decideOn(const rt::String& vm) {
  const std::vector<GuestProcess> guests = guestsOf(vm);
  decide(vm, guests);
  return !guests.empty();
}

bool EarlierGuests::end(const rt::String& vm) {
  if (tools_.waiting.take(vm)) forget(vm);
  const std::vector<GuestProcess> guests = guestsOf(vm);
  if (!guests.empty()) tools_.fates.end(guests);
  return !guests.empty();
}

void EarlierGuests::handleRow(const rt::String& vm) {
  const auto before = tools_.waiting.take(vm);
  if (!before) return;
  forget(vm);
  const std::vector<GuestProcess> guests = guestsOf(vm);
  const VmRow* const now = row(vm);
  // Seen to be removed; that is forgotten with the row, and the guest may have been told nothing.
  if (*before != 0 && (!now || now->vm != *before))
    tools_.fates.end(guests);
  else
    decide(vm, guests);
}

// A store that cannot be asked proves nothing.
bool EarlierGuests::isRemoved(const GuestProcess& keeper) const {
  const auto made = tools_.processes.rowOf(keeper);
  const VmRow* const now = row(keeper.vm);
  if (!made || (now && !now->isLost && now->origin == *made)) return false;
  bool removed = false;
  const rt::String failure = failureOf([&] {
    removed =
        tools_.db.store(statedb::Half::config).hasRemoved(model::table::vmConfig, keeper.vm, *made);
  });
  if (!failure.empty()) report("VM " + keeper.vm + ": whether it was removed: " + failure);
  return removed;
}

GuestFacts EarlierGuests::factsOf(const GuestProcess& keeper) const {
  GuestFacts facts;
  const VmRow* const now = row(keeper.vm);
  if (now && now->valid)
    facts.row = now->valid->enabled() ? RowWord::on : RowWord::off;
  else if (now && !now->isLost)
    facts.row = RowWord::unclear;
  facts.isRemoved = isRemoved(keeper);
  facts.isGivenUp = tools_.configuration.isGivenUp(keeper.vm, tools_.processes.nameOf(keeper.pid));
  facts.canBeDriven = tools_.shims.isThere(keeper.vm);
  return facts;
}

void EarlierGuests::decide(const rt::String& vm, const std::vector<GuestProcess>& guests) {
  if (guests.empty()) return;
  const GuestFate fate = fateOf(factsOf(guests.front()));
  if (fate == GuestFate::ends) return tools_.fates.end(guests);
  const VmRow* const now = row(vm);
  tools_.waiting.waits(vm, now ? now->vm : 0);
  if (fate == GuestFate::takenUp) tools_.fates.adoptableIs(vm, true);
  if (fate != GuestFate::unknown) return;
  const GuestProcess& keeper = guests.front();
  tools_.fates.unknownIs(
      guests, {keeper.pid, tools_.processes.nameOf(keeper.pid),
               doubtOf(tools_.processes.rowOf(keeper), tools_.configuration.reached().history)});
}

}  // namespace host
