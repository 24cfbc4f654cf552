// Where the files and sockets of a VM stand, and what they are called.
//
// Daemon, command line and shim find each other by these paths. The shim makes them all, but for
// the monitor's socket of a guest that is about to be started.
#pragma once

#include <string>
#include <string_view>

namespace guest {

// The directories of the two halves of the database, unless the programs are told others.
inline constexpr const char* defaultStateDir = "/var/lib/vmagent";
inline constexpr const char* defaultRunDir = "/run/vmagent";

// The files of one VM, in RUN/vm/NAME.
inline constexpr const char* shimSocket = "shim.sock";        // the shim's own: ShimProtocol.h
inline constexpr const char* consoleSocket = "console.sock";  // who connects is shown the console
inline constexpr const char* screenSocket = "vnc.sock";       // who connects is shown the screen
inline constexpr const char* consoleLog = "console.log";      // what the guest wrote on its console
inline constexpr const char* shimLog = "shim.log";            // what the shim and QEMU had to say
inline constexpr const char* lastErrorFile = "last-error";    // a line: why the last run went wrong
inline constexpr const char* problemFile = "problem";  // a line while something is wrong, else gone
inline constexpr const char* eventsFile = "events";    // what happened to the guest: EventWords.h
inline constexpr const char* lockFile = "lock";        // held while the guest has a process

// The directory of all VMs' directories, by its name in the run directory and by its path.
inline constexpr const char* vmsDirectory = "vm";
// A file among them, that no VM can be called: who may have which user for QEMU, by locks.
inline constexpr const char* guestUsersFile = ".users";
std::string vmsDirectoryOf(std::string_view runDir);
// The directory of one VM, and a file in it.
std::string directoryOf(std::string_view runDir, std::string_view vm);
std::string fileOf(std::string_view runDir, std::string_view vm, std::string_view file);

// The agent looks for each guest's monitor here, whatever the run directory is.
inline constexpr const char* monitorsDirectory = "/var/run";
inline constexpr std::string_view monitorEnding = ".monitor";
std::string monitorOf(std::string_view vm);
// The VM whose monitor stands at that path; empty: none does.
std::string_view vmOfMonitor(std::string_view path);
// The next guest's monitor until it is started. There is one agent for that directory.
inline constexpr const char* startingMonitor = "/var/run/vmagentd.starting";

// The program that the agent runs.
inline constexpr const char* qemuPath = "/usr/bin/qemu-system-x86_64";
// QEMU itself, where the shim stands in its place. A sibling of QEMU's directory: it looks for its
// firmware in "..".
inline constexpr const char* realQemuPath = "/usr/libexec/vmagent-qemu";

}  // namespace guest
