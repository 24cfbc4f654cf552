// A place where the agent can run QEMU without touching the machine.
#pragma once

#include <sys/types.h>

#include <string>

namespace Vm::fakes {

// For a program's main(), before it makes threads: moves the process to a mount namespace of its
// own, where /var/run is an empty directory in memory and `qemu` (a program's path; empty: none)
// stands at /usr/bin/qemu-system-x86_64, whether the machine has a QEMU or not. Nobody else sees
// any of it, and it ends with the process. Without the right to do so, returns what is missing;
// else an empty text.
std::string enterPrivateMounts(const std::string& qemu);

// For such a main() that cannot do its work: says in one line what `program` needs, and returns the
// exit status, which is a failure only where nothing may be left out (CI or VMAGENT_REQUIRE_ALL is
// set).
int leaveOut(const char* program, const std::string& needs);

// For tests, which are root: to kill(), a number that is none of a process may mean all there are.
void signalProcess(pid_t process, int signal);

// What a script in QEMU's place is made of, and a QEMU that it runs: /usr/bin, and where its links
// lead then.
inline constexpr const char* programs = "/usr/bin:/var/run/.usr-bin";

// QEMU's fixed path.
inline constexpr const char* qemuPath = "/usr/bin/qemu-system-x86_64";

}  // namespace Vm::fakes
