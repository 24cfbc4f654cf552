// Macvtap devices that nobody wants any more.
#pragma once

#include <functional>
#include <set>
#include <vector>

#include "host/guests/AgentView.h"
#include "host/network/Taps.h"

namespace host {

// Whose device a card names, and whether it is the card's still.
struct TapUse {
  rt::String device;
  rt::EthAddr mac;  // the card's
};

// Pure: the devices that carry an address of one of our cards and that no card names. A device of
// anybody else is never among them.
std::vector<rt::String> strayTaps(const std::vector<Tap>& taps, const std::set<rt::EthAddr>& ours,
                                  const std::vector<TapUse>& uses);
// Pure: whether the kernel has the device that the card names, and it is the card's.
bool isThere(const TapUse& use, const std::vector<Tap>& taps);

// The agent deletes a card's device when its VM is disabled, by its name. What it leaves behind
// would keep the card from its interface, for a second device of that address cannot go up; and a
// name it remembers may be another VM's device by then. Owned by the daemon.
class Janitor {
 public:
  struct Tools {
    rt::Ptr<const rt::Entity> agent;  // the root
    std::function<std::set<rt::EthAddr>()> ourAddresses;
    std::function<std::vector<Tap>()> taps;
    std::function<void(const rt::String& device)> remove;
  };
  explicit Janitor(Tools tools) : tools_(std::move(tools)) {}

  // Deletes what is stray: at the start, and when a VM was switched off.
  void sweep();
  // Before an interface is withdrawn whose device stays: deletes what cards have on it.
  void handleWithdrawal(const rt::String& interface);
  // The kernel's devices changed: has cards forget the devices that are gone.
  void handleDevices();

 private:
  const Tools tools_;
};

}  // namespace host
