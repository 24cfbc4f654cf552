// A program of a world, run to its end as from a shell.
#pragma once

#include <string>
#include <vector>

#include "sim/kernel/Machine.h"

namespace sim {

struct CommandEnd {
  bool inTime = false;
  int waitStatus = -1;
  Time began{};
  std::string output;  // of both streams

  // Its exit status; -1: it has none.
  int status() const;
};

// `words`: with the program's name.
CommandEnd runCommand(Machine& machine, const char* path, const std::vector<std::string>& words,
                      Duration time);

}  // namespace sim
