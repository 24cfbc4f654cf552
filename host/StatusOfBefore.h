// What the daemon before has left in the database.
#pragma once

#include <map>
#include <set>

#include "host/database/KeptEvents.h"
#include "host/network/BridgeFdb.h"
#include "host/network/CardStatus.h"
#include "host/network/InterfaceNames.h"
#include "host/state/VmStates.h"
#include "statedb/StateDb.h"

namespace host {

// All of an earlier daemon's status that counts.
struct StatusOfBefore {
  std::map<rt::String, uint64_t> restartsDone;    // by VM: the number that was carried out last
  std::map<rt::String, VmStates::Before> states;  // by VM: what it was, and since when
  std::map<rt::String, InterfaceNames::Before> interfaces;  // by id
  std::map<rt::String, CardStatus::Before> cards;           // by "VM/KEY"
  statedb::Cursor configuration;                            // how far it had come with that
  rt::String store;  // the id of the store that all of it stands in
  EventsBefore events;
};
StatusOfBefore statusOfBefore(statedb::StateDb& db);

// Returns what it put into that bridge. Which of the two forms an entry had is not known any more;
// what is not there is removed already.
std::set<BridgeEntry> bridgeEntriesOfBefore(statedb::StateDb& db, const rt::String& bridge);

}  // namespace host
