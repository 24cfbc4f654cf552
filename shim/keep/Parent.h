// The daemon that started this process.
#pragma once

#include <sys/types.h>

#include <vector>

#include "runtime/base/Descriptor.h"

namespace shim {

// Seen at our start. The daemon keeps the other end of a pipe that we inherit, so one that ended
// before we could look is not taken for whoever got its children.
class Parent {
 public:
  explicit Parent(const std::vector<int>& inherited);

  pid_t pid() const { return pid_; }
  // A descriptor of its process, which is readable once that has ended; none when it is gone.
  rt::Descriptor process() const;
  // From now on it takes us along, with SIGKILL. False: it is gone already.
  bool takesUsAlong() const;
  // No more.
  static void leavesUs();

 private:
  bool lives() const;

  const pid_t pid_;
  std::vector<int> pipes_;  // our ends; not owned
};

}  // namespace shim
