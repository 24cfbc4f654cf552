// Cards that are configured to be on another interface than they are.
#pragma once

#include <functional>

#include "host/guests/AgentView.h"
#include "host/network/InterfaceNames.h"
#include "host/network/Janitor.h"

namespace host {

// Tells the agent that the card's interface went and came, and keeps the other cards there from
// hearing of it: it gives the card up if it is attached, and attaches it if it is not. What a
// handler throws is thrown.
void flapFor(const Card& card, const rt::Entity& agent, InterfaceNames& interfaces);

// The agent reads a card's interface when its guest starts, and keeps to it. So an operator who
// names another while the guest runs has the card moved by us: it is given up where it is, and the
// agent attaches it where it is to be, as soon as QEMU has let go of the old device, or the new
// interface comes. The guest keeps its card, and sees its line go and come. Owned by the healer.
class CardMover {
 public:
  struct Tools {
    rt::Ptr<const rt::Entity> agent;  // the root
    InterfaceNames::Ptr interfaces;
    Janitor& janitor;
    // The interface that the VM's card of that address is configured to be on; empty: no card of it
    // has that address any more.
    std::function<rt::String(const rt::String& vm, rt::EthAddr address)> wanted;
  };
  explicit CardMover(Tools tools) : tools_(std::move(tools)) {}

  // Returns the interface that the card is to be moved to; empty: it is where it is to be.
  rt::String goalOf(const rt::String& vm, const Card& card) const;
  // Sends the card to that interface. To be called while its machine is settled. Throws where the
  // kernel does not answer, and then the card is where it was.
  void move(const rt::String& vm, const Card& card, const rt::String& goal) const;

 private:
  const Tools tools_;
};

}  // namespace host
