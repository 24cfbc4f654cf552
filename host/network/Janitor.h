// Macvtap devices that nobody wants any more.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <vector>

#include "host/guests/AgentView.h"
#include "host/network/Taps.h"

namespace host {

// The device that a card names, and what proves that it is the card's: the address it has, and the
// device of the card's interface, which it stands on.
struct TapUse {
  rt::String device;
  rt::EthAddr mac;     // the card's
  uint32_t lower = 0;  // 0: the interface is not there
};

// Returns those that carry an address of one of our cards, have a name as the agent gives it, and
// are named by no card. Pure. Whoever may configure a card says which addresses are ours, so such a
// device is a stray one only where no other program has it open.
std::vector<rt::String> strayTaps(const std::vector<Tap>& taps, const std::set<rt::EthAddr>& ours,
                                  const std::vector<TapUse>& uses);
// Whether the device of that name may be open in another program, which has these. Pure.
// Nothing: what those have is not known.
bool mayBeOthers(const rt::String& name, const std::vector<Tap>& taps,
                 const std::optional<Nodes>& others);
// Finds the device that the card names, if it is the card's; else null. Pure.
const Tap* tapOf(const TapUse& use, const std::vector<Tap>& taps);

// The agent deletes a card's device when its VM is switched off, by the name that it remembers.
// That may be another VM's device by then, and what the agent does not remember would keep the card
// from its interface, for a second device of that address cannot go up. So cards forget what is not
// theirs, and what is left over is deleted: only what is ours now, by its address. Owned by the
// daemon.
class Janitor {
 public:
  struct Tools {
    rt::Ptr<const rt::Entity> agent;  // the root
    // The addresses of the cards that are configured.
    std::function<std::set<rt::EthAddr>()> ourAddresses;
    // The index of the interface's device; 0 when the interface is not there.
    std::function<uint32_t(const rt::String& interface)> deviceOf;
    std::function<std::vector<Tap>()> taps;  // one look at the kernel's
    // What other programs have open. Looks at all processes.
    std::function<std::optional<Nodes>()> nodesOfOthers;
    std::function<void(const rt::String& device)> remove;
  };
  explicit Janitor(Tools tools) : tools_(std::move(tools)) {}

  // Deletes all that is stray. To be called at the start, and when a guest was taken up.
  void sweep();
  // Has the VM's cards forget devices that are not theirs: all, where the kernel does not answer.
  // To be called before the agent switches the VM off or lets it go. Looks at the kernel each time,
  // for what that has to tell may be unread. Throws nothing.
  void switchingOff(const rt::String& vm);
  // Deletes what is left of the cards that the VM had then. Throws nothing.
  void switchedOff(const rt::String& vm);
  // Notes whose devices a guest has that no card of the agent's is of, for its daemon is dead:
  // those that it holds open. To be called while it runs. Throws nothing.
  void guestLeaves(const rt::String& vm, const Nodes& held);
  // Deletes what that guest has left, and what is left of configured cards. Throws nothing.
  void guestLeft(const rt::String& vm);
  // Deletes what cards have on an interface that is about to be withdrawn while its device stays.
  void handleWithdrawal(const rt::String& interface);
  // Deletes the card's device, and every other of its address that no card names. Throws where the
  // kernel does not answer, and then nothing was done.
  void takeDevice(const Card& card);

 private:
  TapUse useOf(const Card& card) const;
  void sweep(const std::vector<Tap>& taps, const std::set<rt::EthAddr>& ours);

  const Tools tools_;
  std::map<rt::String, std::set<rt::EthAddr>> switchingOff_;  // by VM: its cards' addresses
  std::map<rt::String, std::set<rt::EthAddr>> leaving_;  // likewise, of an earlier daemon's guest
};

}  // namespace host
