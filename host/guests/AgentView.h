// The agent seen from outside: by generic attribute access alone, so the host is linked with none
// of it.
#pragma once

#include <vector>

#include "runtime/entity/Entity.h"
#include "runtime/net/EthAddr.h"

namespace host {

// The machine that runs the VM, or null. `root` is what the module's factory made.
rt::Ptr<rt::Entity> vmMachine(const rt::Entity& root, const rt::String& vm);
// The machine's process; null when there is none.
rt::Ptr<rt::Entity> processOf(const rt::Entity& machine);
// Of a process: whether its end was not seen yet.
bool isAlive(const rt::Entity& process);
int32_t pidOf(const rt::Entity& process);
// The signal that ended it, and else its exit status; 0 for none.
int32_t endSignalOf(const rt::Entity& process);
int32_t exitStatusOf(const rt::Entity& process);

// A machine's session with its guest's monitor: the records that it is driven by.
struct Session {
  rt::Ptr<rt::Entity> input;   // what it is told to ask; null: there is no session
  rt::Ptr<rt::Entity> status;  // how it is; likewise
};
Session sessionOf(const rt::Entity& machine);
bool isConnected(const Session& session);
// How often it was told to ask something, round 2^32. Of a session that is there; likewise below.
uint32_t commandsOf(const Session& session);
// Has it ask for the guest's state, behind all that it was told to ask before.
void askForState(const Session& session);
// Has the agent hear once more that it is connected.
void connectAgain(const Session& session);

// A card of a guest that was started.
struct Card {
  rt::Ptr<rt::Entity> record;
  rt::String interface;
  rt::EthAddr mac;
  rt::String tap;  // its macvtap device; empty when it has none
};
// All cards of all VMs.
std::vector<Card> cards(const rt::Entity& root);
// Those of one machine.
std::vector<Card> cardsOf(const rt::Entity& machine);
// Has the card forget its device, which is not the agent's to delete any more.
void forgetTap(const Card& card);

}  // namespace host
