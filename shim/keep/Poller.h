// Waiting for many descriptors of which few ever have anything to say.
#pragma once

#include <poll.h>

#include <vector>

#include "runtime/base/Descriptor.h"

namespace shim {

// To look at all of a shim's descriptors before and after each sleep costs more than all else that
// it does for a question of the agent's. So when only the busy ones had something to say, one
// descriptor is looked at in place of all others, until one of these speaks or is another.
//
// That is right as long as the caller exchanges a descriptor of the others for one with the same
// number only when one of them had something to say.
class Poller {
 public:
  // The first `busy` entries of what is polled are always looked at.
  explicit Poller(size_t busy) : busy_(busy) {}

  // As poll() does it: `timeout` in milliseconds, -1 for ever; what came is written to the entries.
  int wait(std::vector<pollfd>& polled, int timeout);

 private:
  int waitForAll(std::vector<pollfd>& polled, int timeout);
  bool isWatched(const std::vector<pollfd>& polled) const;
  void watch(const std::vector<pollfd>& polled);

  const size_t busy_;
  rt::Descriptor others_;        // an epoll instance; none: all are looked at
  std::vector<pollfd> watched_;  // by it
};

}  // namespace shim
