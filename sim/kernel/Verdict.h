// What was found wrong.
#pragma once

#include <string>

namespace sim {

// The first thing that was wrong; then nothing runs any more.
struct Verdict {
  std::string clause;  // short: which promise was broken; empty: none
  std::string about;   // what it was broken about: a VM, a device
  std::string text;

  bool failed() const { return !clause.empty(); }
};

}  // namespace sim
