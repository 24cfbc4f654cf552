// What becomes of the guests that run already when the daemon starts.
#pragma once

#include <functional>
#include <map>
#include <vector>

#include "host/database/VmRows.h"
#include "host/guests/Survivors.h"

namespace host {

//   its VM's row             | a guest that can be driven
//   -------------------------+--------------------------------------------------------
//   wants it on              | goes on, and is taken up by the VM's start
//   cannot be understood     | goes on, until the row can be
//   wants it off, or is gone | ends
//   is made anew meanwhile   | ends: it was another VM's
//
// What cannot be driven ends. Owned by the daemon.
class EarlierGuests {
 public:
  struct Tools {
    // One look at all processes.
    std::function<std::vector<GuestProcess>()> guests;
    // Whether a guest's shim is there to be asked.
    std::function<bool(const rt::String& vm)> canBeDriven;
    // Null when there is none.
    std::function<const VmRow*(const rt::String& vm)> row;
    // Whether the VM's next start takes its guest up.
    std::function<void(const rt::String& vm, bool)> adoptableIs;
    std::function<void(const std::vector<GuestProcess>&)> end;
  };
  explicit EarlierGuests(Tools tools) : tools_(std::move(tools)) {}

  // At the daemon's start, once the rows are known.
  void decide();
  // The VM is to be something else than it was. To be called before anything is made of that.
  void handleRow(const rt::String& vm);
  // The VM's start has taken its guest up.
  void tookUp(const rt::String& vm) { waiting_.erase(vm); }
  // Whether the VM's guest goes on, and was not taken up yet.
  bool isWaiting(const rt::String& vm) const { return waiting_.contains(vm); }

 private:
  void decideOn(const std::vector<GuestProcess>& guests);

  const Tools tools_;
  std::map<rt::String, uint64_t> waiting_;  // by VM: when its row was made
};

}  // namespace host
