// Which guest one is, by what its process shows of itself. Nobody but root can write there.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "host/guests/GuestProcess.h"
#include "statedb/Record.h"

namespace host {

// The row that its VM was started by, or taken up by last: as its daemon told it, in variables of
// its environment. Nothing of a guest that an older daemon started, and of one that has gone.
std::optional<statedb::Origin> rowOf(const GuestProcess& guest);
// The same of an environment, its variables NUL-terminated.
std::optional<statedb::Origin> rowIn(std::string_view environment);
// The variables that say so. There is room for any later row in them.
std::vector<std::pair<rt::String, rt::String>> variablesOf(const statedb::Origin& origin);

// The name of this very process: no other has it, before it or after. Empty when it has gone.
rt::String guestName(int32_t pid);

// The oldest first: who keeps a guest is older than who stands in for it.
void sortByAge(std::vector<GuestProcess>& guests);

}  // namespace host
