// Who is there, by the model's own tables.
#pragma once

#include <string>
#include <vector>

#include "sim/world/World.h"

namespace sim {

// The VM on a process' command line; empty: none.
std::string vmOf(const Process& process);
bool isDaemon(const Process& process);
// Of any VM; whoever was forked of one and has no program of its own yet, too.
bool isShim(const Process& process);
bool isCommand(const Process& process);
bool isQemu(const Process& process);
// Of the three programs.
bool isOurs(const Process& process);

// Those that live, in the order of their beginnings.
std::vector<Process*> shimsOf(World& world, const std::string& vm);
std::vector<Process*> qemusOf(World& world, const std::string& vm);

// As "vmagent-shim of vm1 (112)".
std::string nameOf(const Process& process);
std::string textOf(const MacAddress& mac);
// As "ended by signal 9" or "ended with status 1".
std::string endText(int waitStatus);

}  // namespace sim
