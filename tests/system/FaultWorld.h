// A machine on which things go wrong, and what must be so of it however they went.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/system/GuestWorld.h"

namespace host::fakes {

// What a VM was told to be.
struct Expected {
  std::string vm;
  bool runs = true;
  pid_t qemu = 0;  // it must be this one; 0: any
  int cards = 0;   // that are on an interface
};

class FaultWorld : public GuestWorld {
 public:
  FaultWorld();

  // How long the status may take to tell the truth, in seconds.
  static constexpr double truth = 10;

  // With the shim and a real QEMU. Options that come later win.
  void start(const std::vector<std::string>& more = {});
  // A guest of one sector, which takes no notice of its power button, on a disk of its own.
  Ended addGuest(const std::string& vm, const std::vector<std::string>& more = {}) const;
  // Several, until each has booted and is shown to have its process.
  void runGuests(const std::vector<std::string>& vms, const std::vector<std::string>& more = {});
  // The one QEMU of that VM; 0 when there is none, or more than one.
  static pid_t qemu(const std::string& vm);
  // The process that keeps its guest, as it greets; 0 for none.
  pid_t keeper(const std::string& vm) const;
  std::string directory(const std::string& vm) const { return runDir + "/vm/" + vm; }
  std::string shimLog(const std::string& vm) const;
  // The VM's problem, as `vmctl show` tells it; empty when there is none.
  std::string shownProblem(const std::string& vm) const;

  // What of the machine is not as it must be with these VMs and no other: processes, sockets,
  // macvtap devices, addresses in the bridge, and what the status tells. Empty: all is.
  std::string wrong(const std::vector<Expected>& all) const;
  // Whether all is in time.
  testing::AssertionResult settles(const std::vector<Expected>& all, double seconds = truth) const;
  // Whether a machine that has settled stays as it is: no row of status is written, and no QEMU is
  // asked for anything but its state, through the next poll of each VM that runs. Needs a daemon
  // with --trace 1,8.
  testing::AssertionResult rests(const std::vector<Expected>& all) const;
  // How long the agent looked for a monitor, in seconds, each time that it did. Needs --trace 1,8.
  std::vector<double> looks() const;
  // The agent's, before it looks again: after a first look in vain no time is as short.
  static constexpr double pause = 0.2;
  // Signals that process, which must be one.
  static void signal(pid_t process, int number);
  // The open descriptors of a process, once what came and went has gone. Without the one by which a
  // shim waits for many at once, which it has while these are quiet.
  static size_t descriptors(pid_t process);
};

}  // namespace host::fakes
