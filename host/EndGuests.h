// The end of all guests, without a daemon: as before the machine goes down.
#pragma once

#include <vector>

#include "host/Options.h"
#include "host/guests/Survivors.h"

namespace host {

// Has every guest of the machine shut itself down, ends those that do not in time, and deletes the
// devices of their cards, and of the configured ones. The configuration stays as it is, so that the
// next daemon starts what is enabled there. Returns when all are gone; those that go on in spite of
// all, if any. Throws statedb::Error when a daemon runs, for that one keeps guests.
std::vector<GuestProcess> endGuests(const Options& options);

}  // namespace host
