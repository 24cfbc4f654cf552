// The macvtap devices that the kernel has.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <set>
#include <vector>

#include "guest/GuestUsers.h"
#include "runtime/base/String.h"
#include "runtime/net/EthAddr.h"

namespace host {

struct Tap {
  rt::String name;
  rt::EthAddr mac;
  uint32_t lower = 0;  // the index of the device that it stands on
  bool isUp = false;   // switched on, whether its lower device has a carrier or not
  uint32_t index = 0;  // its own
  dev_t node = 0;      // the number of its character device; 0: the kernel does not say

  friend bool operator==(const Tap&, const Tap&) = default;
};

// One look at the devices of this network. Throws Exception when the kernel does not answer.
std::vector<Tap> taps();
// Numbers of character devices. Indexes and names of nodes are the same in many networks.
using Nodes = std::set<dev_t>;

// Returns those that the process or a child of its first thread has open: a shim's QEMU is its
// child. None of a process that has gone.
Nodes nodesHeldBy(int32_t pid);

// Returns those that somebody has open who is no guest of ours, nor ourselves: a process of another
// program. `users`: guests' QEMUs'. Looks at all processes; nothing: they have more open than can
// be looked through in a quarter of a second, for which whoever likes can see.
std::optional<Nodes> nodesOfOthers(const guest::UserRange& users);

}  // namespace host
