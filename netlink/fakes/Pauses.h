// Pauses that take no time, in the place of those between looks for a tap's node.
#pragma once

namespace netlink::fakes {

// Counts from 0 while it lives: what pauses is a plain function.
struct Pauses {
  Pauses() { counted = 0; }

  static void count() { ++counted; }
  static inline int counted = 0;
};

}  // namespace netlink::fakes
