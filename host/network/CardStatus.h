// How the guests' cards are, shown and told.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>

#include "host/base/Problems.h"
#include "host/guests/AgentView.h"
#include "host/guests/Shims.h"
#include "host/guests/VmCards.h"
#include "host/state/Situation.h"
#include "model/Event.h"
#include "runtime/entity/Reactor.h"
#include "runtime/loop/Clock.h"

namespace host {

// Looks at a guest's cards whenever anything is heard of its machine, or of an interface that it
// has a card on: shows how they are, tells of each that has no line, and has the guest's shim take
// the line from the guest, too, where its policy says so. A shim that cannot be told is told later;
// nobody waits for it. Whatever is told of the VMs' cards it hands on.
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
    Shims& shims;
    VmCards& cards;  // who is told next
    // The card's key in its VM's row; empty: that has no card of that address.
    std::function<rt::String(const rt::String& vm, rt::EthAddr mac)> keyOf;
    // Whether the VM's guest is to see of its interfaces' lines what is so.
    std::function<bool(const rt::String& vm)> followsLink;
    std::function<uint64_t()> now;  // s since 1970
    // Is told of the VM's weightiest card without a line, before it is a problem.
    std::function<void(const rt::String& vm, const CardTrouble& card)> trouble;
    std::function<void(const model::Event::Ptr& event)> tell;
  };
  // What could not be told to a shim is tried again so long after, and then in twice that time.
  static constexpr rt::Seconds firstDelay{1};
  static constexpr rt::Seconds longestDelay{64};

  CardStatus(Tools tools, std::map<rt::String, Before> before, rt::Clock::Ptr clock);

  // Something of the interface has changed.
  void interfaceIs(const rt::String& id);
  // What the VM's guest is to see may be another.
  void policyIs(const rt::String& vm) { due_.insert(vm); }
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
    std::optional<bool> line;  // that the guest's shim was told
  };
  // Its end need not be heard of by its machine.
  void handleProcess(const rt::Entity& process, const rt::Change& /*change*/);
  // A guest.
  struct Guest {
    explicit Guest(CardStatus& owner) : process(owner) {}

    int32_t pid = 0;
    std::map<rt::EthAddr, Seen> cards;
    rt::Seconds tellAt = rt::Seconds::infinity();
    rt::Seconds delay = firstDelay;
    rt::AnyReactor<CardStatus, &CardStatus::handleProcess> process;
  };

  void handleInitialized();
  void handleClock();
  void look(const rt::String& vm);
  void forget(const rt::String& vm);
  void forgetCards(const rt::String& vm, Guest& guest, const std::vector<Card>& cards);
  Seen& seenOf(const rt::String& vm, Guest& guest, const Card& card);
  std::string_view linkOf(const Card& card) const;
  void show(const rt::String& vm, const Card& card, Seen& seen);
  void tellChange(const rt::String& vm, Seen& seen);
  void showTrouble(const rt::String& vm, const Guest& guest);
  void tellShim(const rt::String& vm, Guest& guest, const std::vector<Card>& cards);
  void setClock();

  const Tools tools_;
  std::map<rt::String, Before> before_;
  std::map<rt::String, Guest> guests_;
  std::set<rt::String> due_;

  rt::ClockReactor<CardStatus, &CardStatus::handleClock> clock_;
};

}  // namespace host
