// How the guests' cards are, shown and told.
#pragma once

#include <functional>
#include <map>
#include <set>

#include "host/base/Problems.h"
#include "host/guests/AgentView.h"
#include "host/guests/VmCards.h"
#include "host/state/Situation.h"
#include "model/Event.h"
#include "runtime/entity/Reactor.h"

namespace host {

// Looks at a guest's cards whenever anything is heard of its machine, or of an interface that it
// has a card on: shows how they are, and tells of each that has no line. Whatever is told of the VMs' cards it hands on.
class CardStatus final : public rt::StateMachineOf<CardStatus>, public VmCards {
 public:
  // Of a card, by "VM/KEY", what an earlier daemon had written.
  struct Before {
    rt::String link;
    uint64_t since = 0;
  };
  struct Tools {
    rt::Ptr<const rt::Entity> agent;  // the root
    HostStatus::Ptr status;           // whose rows of interfaces are true
    Problems& problems;
    VmCards& cards;  // who is told next
    // The card's key in its VM's row; empty: that has no card of that address.
    std::function<rt::String(const rt::String& vm, rt::EthAddr mac)> keyOf;
    std::function<uint64_t()> now;  // s since 1970
    // Is told of the VM's weightiest card without a line, before it is a problem.
    std::function<void(const rt::String& vm, const CardTrouble& card)> trouble;
    std::function<void(const model::Event::Ptr& event)> tell;
  };

  CardStatus(Tools tools, std::map<rt::String, Before> before);

  // Something of the interface has changed.
  void interfaceIs(const rt::String& id);
  // Once a pass of the loop.
  void pass();

  void switchingOff(const rt::String& vm) override { tools_.cards.switchingOff(vm); }
  void switchedOff(const rt::String& vm) override;
  void changed(const rt::String& vm) override;
  void tookUp(const rt::String& vm) override { tools_.cards.tookUp(vm); }
  void guestLeaves(const rt::String& vm, int32_t pid) override {
    tools_.cards.guestLeaves(vm, pid);
  }
  void guestLeft(const rt::String& vm) override { tools_.cards.guestLeft(vm); }

  static constexpr std::string_view typeName = "host::CardStatus";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &CardStatus::initialized>>;

 private:
  struct Seen {
    rt::String key;
    rt::String interface;
    std::string_view link;
    uint64_t since = 0;
    Before before;
    rt::String told;           // the trouble that was told of; empty: none, or it is over
  };
  // Its end need not be heard of by its machine.
  void handleProcess(const rt::Entity& process, const rt::Change& /*change*/);
  // A guest.
  struct Guest {
    explicit Guest(CardStatus& owner) : process(owner) {}

    std::map<rt::EthAddr, Seen> cards;
    rt::AnyReactor<CardStatus, &CardStatus::handleProcess> process;
  };

  void handleInitialized();
  void look(const rt::String& vm);
  void forget(const rt::String& vm);
  void forgetCards(const rt::String& vm, Guest& guest, const std::vector<Card>& cards);
  Seen& seenOf(const rt::String& vm, Guest& guest, const Card& card);
  std::string_view linkOf(const Card& card) const;
  void show(const rt::String& vm, const Card& card, Seen& seen);
  void tellChange(const rt::String& vm, Seen& seen);
  void showTrouble(const rt::String& vm, const Guest& guest);

  const Tools tools_;
  std::map<rt::String, Before> before_;
  std::map<rt::String, Guest> guests_;
  std::set<rt::String> due_;
};

}  // namespace host
