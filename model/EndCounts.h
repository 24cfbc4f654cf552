// Why guests end, and how often each of it was why.
#pragma once

#include <array>
#include <map>

#include "runtime/base/String.h"

namespace model {

// The words for it, which stay the same.
inline constexpr std::array endCauses{
    "guest-shutdown", "asked",        "asked-forced", "powered-off", "signal",    "killed",
    "memory-limit",   "start-failed", "qemu-crashed", "qemu-failed", "shim-lost", "guest-panic",
    "watchdog",       "guest-reset",  "quit",         "unknown"};

// By one of those words.
using EndCounts = std::map<rt::String, uint64_t>;

// As a record has it: "asked:2 killed:1".
rt::String textOf(const EndCounts& counts);
// What is no such count is left out.
EndCounts endCountsFrom(const rt::String& text);

}  // namespace model
