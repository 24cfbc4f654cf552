// vmctl in a process that lives on: for the hundreds of commands of a history, most of whose time
// would be spent opening databases.
#pragma once

#include <string>
#include <vector>

#include "statedb/StateDb.h"

namespace sim {

struct CommandWords {
  int status = 0;
  std::string output;      // of both streams
  bool hasFailed = false;  // one of the stores has: they are to be opened anew
};

// As the program would, but with `database`, which stays open. `words`: without the program's name.
// Not for what waits for changes.
CommandWords runVmctl(const std::vector<std::string>& words, statedb::StateDb& database);

}  // namespace sim
