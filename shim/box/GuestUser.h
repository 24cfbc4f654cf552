// The user that a guest's QEMU is run as.
#pragma once

#include "guest/GuestUsers.h"
#include "runtime/base/Descriptor.h"
#include "shim/base/Place.h"

namespace shim {

// One of the range that is the guest's alone, as long as this is held or a process of it lives:
// QEMU, taken over by its guest, can then do nothing to another. No file is any such user's, so it
// matters to nobody which it is.
//
// Two shims that start at once are kept apart by a lock on the number's byte in a file that they
// share. It is this process's own, so it goes with it and no QEMU can give it up. That no process
// has the number is asked of the kernel: a QEMU may outlive its shim for a moment, or for long
// where its disk does not answer, and of strangers there is no lock.
class GuestUser {
 public:
  // Throws Failure when all are taken.
  GuestUser(const Place& locks, const guest::UserRange& range);

  unsigned number() const { return number_; }

 private:
  bool take(unsigned number, const guest::UserRange& range);

  rt::Descriptor locks_;
  unsigned number_ = 0;
};

}  // namespace shim
