// A guest that runs, and the command line that it would be started with now.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "shim/decide/Arguments.h"

namespace shim {

// The guest's name for each card of `wanted` that it has: the one of the same MAC address. Pure.
std::map<std::string, std::string> cardNames(const CommandLine& guest, const CommandLine& wanted);

// What the guest would be like only after a restart: a sentence each, in the order of what an
// operator knows. Empty when nothing differs. Pure.
std::vector<std::string> restartReasons(const CommandLine& guest, const CommandLine& wanted);

}  // namespace shim
