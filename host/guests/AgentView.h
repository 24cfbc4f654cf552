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
  rt::Ptr<rt::Entity> output;  // what came of what it was told; likewise
};
Session sessionOf(const rt::Entity& machine);
bool isConnected(const Session& session);
// How often it was told to ask something, round 2^32. Of a session that is there; likewise below.
uint32_t commandsOf(const Session& session);
// The number of the command that was answered last; one that was not changes nothing.
uint32_t lastAnswered(const Session& session);
// Has it ask for the guest's state, behind all that it was told to ask before.
void askForState(const Session& session);
// Has the agent hear once more that it is connected.
void connectAgain(const Session& session);

// A card of a guest that was started, as it was when it was looked at.
struct Card {
  rt::Ptr<rt::Entity> record;
  rt::String interface;
  rt::EthAddr mac;
  rt::String tap;     // its macvtap device; empty when it has none
  rt::String status;  // "linkUninitialized", "linkDown", "linkGoingDown", "linkGoingUp", "linkUp"
  bool hasDescriptor = false;  // of its device
};
// All cards of all VMs.
std::vector<Card> cards(const rt::Entity& root);
// Those of one machine.
std::vector<Card> cardsOf(const rt::Entity& machine);
// Has the card forget its device, which is not the agent's to delete any more.
void forgetTap(const Card& card);
// Has the agent take the card for one of that status.
void statusIs(const Card& card, std::string_view status);
// Has the agent attach the card to that interface from now on. For a card that is given up, or
// about to be.
void interfaceIs(const Card& card, const rt::String& interface);
// Has the agent take the card for one that is attached, so that it gives it up when its interface
// goes, and attaches it anew. For a card of a machine that is settled: an answer that came later
// would find it as it cannot be. ErrnoException when no descriptor is left.
void makeAttached(const Card& card);
// Whether the machine's monitor is connected and nothing is waited for that it was asked.
bool isSettled(const rt::Entity& machine);

}  // namespace host
