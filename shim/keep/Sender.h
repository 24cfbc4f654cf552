// Who sent a signal.
#pragma once

#include <sys/types.h>

#include <string>

namespace shim {

// "signal 15 to its shim, from process 123 (bash)", for an operator. Without the name when the
// process is gone; 0 is the kernel.
std::string signalText(unsigned signal, pid_t sender);
// What is to be said of a guest that such a signal ended, and done.
std::string endedByText(const std::string& signal, const std::string& vm);

}  // namespace shim
