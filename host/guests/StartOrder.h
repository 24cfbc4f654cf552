// In which order VMs are started when the daemon begins.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "runtime/base/Seconds.h"
#include "runtime/base/String.h"

namespace host {

// VMs that have a number are started by it, the least first, and after that all others. Each waits
// until the one before was started, or cannot be, and then as long as that one has said. Who is
// switched on later waits for nobody. Pure. Owned by the guests' side; keepers ask it.
class StartOrder {
 public:
  struct Place {
    rt::String vm;
    uint32_t number = 0;  // 0: after all that have one
    rt::Seconds delay{0};
  };
  // How long a start may take that waits for something, before the next is not held up any more.
  static constexpr rt::Seconds patience{30};

  // Those that are to be started now.
  void placesAre(std::vector<Place> places, rt::Seconds now);

  bool isTurn(const rt::String& vm, rt::Seconds now) const;
  // When it is the VM's turn; infinity: when takeFreed() says so.
  rt::Seconds turnAt(const rt::String& vm) const;
  // The VM whose start it waits for now; empty: for none.
  rt::String after(const rt::String& vm) const;
  // When others do not wait for it any more; infinity: they do not, or not yet.
  rt::Seconds heldUntil(const rt::String& vm) const;

  // It was started, just now.
  void started(const rt::String& vm, rt::Seconds now);
  // It cannot be started, or is not to be.
  void passed(const rt::String& vm);
  // Those who are to ask again, since the last call.
  std::vector<rt::String> takeFreed() { return std::exchange(freed_, {}); }

 private:
  void freeNext();

  std::vector<Place> places_;    // those with a number that have not passed, the next one last
  std::set<rt::String> others_;  // those without
  rt::Seconds turn_{0};          // of the next one
  rt::String before_;            // who passed last
  std::vector<rt::String> freed_;
};

}  // namespace host
