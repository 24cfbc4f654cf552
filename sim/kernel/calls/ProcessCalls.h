// The calls about processes. Results are as the kernel's: -errno.
#pragma once

#include <sys/types.h>

#include "sim/kernel/File.h"

namespace sim::sys {

// -1 of a group: any child; as the call of that name.
Result waitForChild(pid_t pid, int* waitStatus, int options);
Result kill(pid_t pid, int signal);
Result parentNumber();
Result processControl(int option, unsigned long argument);  // as prctl()
Result newSession();
Result openProcess(pid_t pid, unsigned flags);
Result signalProcess(int number, int signal);

}  // namespace sim::sys
