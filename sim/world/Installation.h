// The programs as they are installed on a machine of a world.
#pragma once

#include <string>
#include <vector>

#include "sim/kernel/Machine.h"

namespace sim {

// Where they are.
inline constexpr const char* daemonPath = "/usr/sbin/vmagentd";
inline constexpr const char* shimPath = "/usr/lib/vmagent/vmagent-shim";
inline constexpr const char* commandPath = "/usr/bin/vmctl";
inline constexpr const char* stateDirectory = "/var/lib/vmagent";
inline constexpr const char* runDirectory = "/run/vmagent";

// Puts the three programs there, and the shim in QEMU's place as the daemon's mounts would.
void install(Machine& machine);

// What a service manager gives a program.
std::vector<std::string> usualEnvironment();

}  // namespace sim
