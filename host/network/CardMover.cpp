#include "host/network/CardMover.h"

#include "host/base/Report.h"

namespace host {

namespace {

constexpr std::string_view neverAttached = "linkUninitialized";

// Keeps the interface's other cards from hearing that it goes and comes, for the time of its life.
class OthersSpared {
 public:
  OthersSpared(const rt::Entity& agent, const Card& card) {
    for (const Card& other : cards(agent))
      if (other.interface == card.interface && other.record != card.record) {
        spared_.push_back(other);
        statusIs(other, neverAttached);
      }
  }
  OthersSpared(const OthersSpared&) = delete;
  ~OthersSpared() {
    for (const Card& other : spared_) statusIs(other, other.status.str());
  }

 private:
  std::vector<Card> spared_;
};

}  // namespace

void flapFor(const Card& card, const rt::Entity& agent, InterfaceNames& interfaces) {
  const OthersSpared spared(agent, card);
  interfaces.flap(card.interface);
}

rt::String CardMover::goalOf(const rt::String& vm, const Card& card) const {
  const rt::String wanted = tools_.wanted(vm, card.mac);
  return wanted == card.interface ? rt::String() : wanted;
}

void CardMover::move(const rt::String& vm, const Card& card, const rt::String& goal) const {
  report("VM " + vm + ": card " + card.mac.text() + " is moved from " + card.interface + " to " +
         goal);
  tools_.janitor.takeDevice(card);
  Card moved = card;
  moved.interface = goal;
  rt::String failure;
  if (card.status == neverAttached || (card.status == "linkDown" && !card.hasDescriptor)) {
    interfaceIs(card, goal);
    failure = failureOf([&] { flapFor(moved, *tools_.agent, *tools_.interfaces); });
  } else {
    // Its static address is the old interface's until it is given up.
    failure = failureOf([&] {
      makeAttached(card);
      flapFor(card, *tools_.agent, *tools_.interfaces);
    });
    interfaceIs(card, goal);
  }
  if (!failure.empty()) report("VM " + vm + ": card " + card.mac.text() + ": " + failure);
}

}  // namespace host
