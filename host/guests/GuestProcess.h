// The machine's processes that are guests.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/base/String.h"

namespace host {

// A running QEMU that an agent started, by the monitor's path on its command line.
struct GuestProcess {
  rt::String vm;
  int32_t pid = 0;
};
// Those whose monitor would be where ours are, of our own user. One look at all processes.
//
// Words prove nothing, for anybody may start a program with a guest's. So a process counts only if
// all its users are ours, and its program changes none when it is started: what can be started as
// us by another, with words of his choice, is such a program. The program's path or file would
// prove no more, and less after an upgrade, when a guest goes on with one that is not there any
// more.
std::vector<GuestProcess> guestProcesses();
// The VM that the process of that directory in /proc runs; empty when it is no guest of ours.
// Another user's process is asked for nothing that lies in its memory: that could keep us waiting
// for as long as he likes.
rt::String guestOf(const std::string& process);
// The VM on a process's command line, its words NUL-terminated; empty when it is not a guest's.
rt::String vmOnCommandLine(std::string_view commandLine);

}  // namespace host
