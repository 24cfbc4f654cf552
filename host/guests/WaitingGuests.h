// Guests that an earlier daemon left, and that wait to be taken up.
#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "runtime/base/String.h"

namespace host {

// Each is its VM's guest until its start takes it up, or something else becomes of it. Owned by the
// daemon; written by EarlierGuests and by the keeper that takes one up.
class WaitingGuests {
 public:
  // `row`: VmRow::vm of the VM's row; 0: there is none.
  void waits(const rt::String& vm, uint64_t row) { guests_[vm] = row; }
  bool isWaiting(const rt::String& vm) const { return guests_.contains(vm); }
  // Forgets the VM's guest, and returns its row as it was when it began to wait; nothing when none
  // waits.
  std::optional<uint64_t> take(const rt::String& vm) {
    const auto found = guests_.extract(vm);
    return found ? std::optional(found.mapped()) : std::nullopt;
  }

 private:
  std::map<rt::String, uint64_t> guests_;  // by VM
};

}  // namespace host
