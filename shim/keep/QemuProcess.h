// The process that the shim keeps.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "shim/box/Box.h"
#include "shim/box/GuestGroup.h"

namespace shim {

// What QEMU inherits, and nothing else: its standard input is /dev/null.
struct Inheritance {
  int monitor = -1;
  int serial = -1;
  int lock = -1;
  int output = -1;          // standard output and error
  std::vector<int> images;  // of the disks, in the order of their numbers in QEMU
};

// Starts the box's program in the box and the group. It dies with the thread that calls this: with
// SIGKILL, when that ends. No signal is blocked, ignored or handled, and there is no environment:
// QEMU needs none. What cannot be shut in, or run, ends with status 127 and says why on its
// standard error. Throws Failure when there can be no process.
pid_t startQemu(const Box& box, const GuestGroup& group, const std::vector<std::string>& argv,
                const Inheritance& inheritance);

// The descriptors above standard error that this process has: at its start, those of its parent.
// One of them may be what the parent sees our end by.
std::vector<int> inheritedDescriptors();

// Ends this process as that of the wait status ended: with its exit status, or by its signal and
// without a core. `parting` are closed in the same breath.
[[noreturn]] void endAs(int waitStatus, const std::vector<int>& parting);

}  // namespace shim
