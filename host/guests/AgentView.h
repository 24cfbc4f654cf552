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
// The signal that ended it; 0 for none.
int32_t endSignalOf(const rt::Entity& process);

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
