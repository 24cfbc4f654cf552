// What QEMU is shut in: its guest may have taken it over.
#pragma once

#include "shim/box/PrivateRoot.h"

namespace shim {

struct Box {
  unsigned user = 0;  // and group: the guest's own
  PrivateRoot root;
};

// Each for a forked child, in the order of these functions. What they throw, Failure, says which
// step could not be taken; whoever hears of it must not go on with less.

// Ends this process, by SIGKILL, with `parent`. It must be said again after a change of user, which
// the kernel takes for another program's.
void endWith(pid_t parent);

// Gives it a network, messages and a host's name of its own, of which none leads anywhere, and the
// files of the box. It may have few of what users have to share.
void enterBox(const Box& box);

// Becomes the box's user, and nobody else again.
void becomeUserOf(const Box& box);

// Forbids the system calls that QEMU does not make; see CallFilter.h.
void forbidCalls();

}  // namespace shim
