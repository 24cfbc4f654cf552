// What the kernel shows of a process.
#pragma once

#include <string>

namespace host {

// "/proc/4711".
std::string directoryOf(int32_t pid);
// A file of a process's directory, such as "/cmdline"; empty when the process has gone, as it may
// between any two steps.
std::string textOf(const std::string& process, const char* name);

}  // namespace host
