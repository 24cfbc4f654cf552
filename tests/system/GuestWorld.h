// A machine with vmagentd, the shim and a real QEMU on it, and what is seen of its guests.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/system/DaemonWorld.h"

namespace host::fakes {

// The machine's own QEMU, once enterDaemonWorld() was given it.
inline constexpr const char* machinesQemu = "/var/run/.usr-bin/qemu-system-x86_64";

class GuestWorld : public DaemonWorld {
 public:
  // What the guest has written on its console since byte `from`.
  std::string console(const std::string& vm, size_t from = 0) const;
  bool saysOnConsole(const std::string& vm, const std::string& text, size_t from = 0,
                     double seconds = 40) const;
  // Types it on the guest's console, at its pty.
  void type(const std::string& vm, const std::string& text) const;
  // Whether the VM's shim has that in its log, within 20 s.
  bool shimSaid(const std::string& vm, const std::string& text) const;
  // Types a command, time and again, until that is what the guest says then.
  bool answersOnConsole(const std::string& vm, const std::string& command,
                        const std::string& answer, double seconds = 20) const;

  // The VM's QEMUs, of this machine only. (guests() are the shims.)
  static std::vector<pid_t> qemus(const std::string& vm);
  // The words that its QEMU was started with, each followed by a NUL.
  static std::string commandLine(const std::string& vm);
  // When the agent was told that the VM runs, in seconds; with the daemon's option --trace 8.
  std::vector<double> polls(const std::string& vm) const;
};

}  // namespace host::fakes
