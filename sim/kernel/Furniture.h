// What every machine has before anything runs on it.
#pragma once

namespace sim {

class Machine;

// Directories, devices, and what the kernel makes up: /proc and /sys. /run is in memory.
void furnish(Machine& machine);

}  // namespace sim
