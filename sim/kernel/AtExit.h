// What a program has asked to be done when it ends.
#pragma once

#include "sim/kernel/Process.h"

namespace sim {

// The last first, also what is asked for meanwhile.
inline void runAtExit(Process& process) {
  while (!process.atExit.empty()) {
    const Process::AtExit last = process.atExit.back();
    process.atExit.pop_back();
    last.run(last.argument);
  }
}

}  // namespace sim
