// Device nodes of one's own, where the machine's are another network's.
#pragma once

#include <atomic>
#include <memory>
#include <thread>

#include "runtime/base/String.h"

namespace host {

// A tap's node is named by its device's index, which each network namespace counts for itself, and
// udev knows of the machine's own network only: in any other namespace /dev/tapN is missing, or is
// another network's tap.
bool needsPrivateDev();

// Moves the process to a mount namespace of its own, where /dev has all it had but taps and /sys
// shows its own network. To be called before there are threads. Throws Exception, saying what is
// not permitted.
void enterPrivateDev();

// Makes /dev/tapN for each macvtap of this network as it comes, and removes it as it goes, on a
// thread of its own: the agent waits for a node while no handler can run.
class TapNodeMaker {
 public:
  TapNodeMaker();  // throws Exception when the kernel does not tell of devices
  TapNodeMaker(const TapNodeMaker&) = delete;
  ~TapNodeMaker();

 private:
  struct State;
  std::unique_ptr<State> state_;
  std::thread thread_;
};

}  // namespace host
