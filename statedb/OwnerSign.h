// What shows that the state database has an owner now.
#pragma once

#include <sys/types.h>

#include "runtime/base/Descriptor.h"
#include "runtime/base/String.h"

namespace statedb {

// A socket RUN/vmagentd.alive, bound for as long as this lives, at which nobody is heard. A dead
// process has none, so a look tells the truth without anything that could be left over; and a look
// takes nothing, so nobody who may look can keep the next owner from starting. The group of the
// directory may look.
class OwnerSign {
 public:
  // To be made before there are threads, and once the owner is known to be the only one. Throws
  // Error.
  explicit OwnerSign(const rt::String& runDir);
  OwnerSign(const OwnerSign&) = delete;
  ~OwnerSign();

 private:
  const rt::Descriptor directory_;
  const rt::Descriptor socket_;
};

// Whether the owner of the status in `runDir` runs now, ready or not. Touches nothing. What may not
// be looked at counts as dead.
bool ownerIsAlive(const rt::String& runDir);

}  // namespace statedb
