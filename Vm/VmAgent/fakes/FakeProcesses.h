// Processes, sockets and sleeping, as the agent sees them, without any of them being real.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Vm/Monitor/fakes/QmpPeer.h"
#include "Vm/VmAgent/fakes/EffectLog.h"

namespace Vm::fakes {

// Stands behind pipe, fork, waitpid, kill, calloc, socket, connect, usleep and unlink of a program
// that is linked with VmFakeSystem, for as long as it lives; there is one at a time. What the agent
// does is written to the log: "fork 1000", "kill 1000 15", "waitpid 1000", "connect PATH",
// "unlink PATH".
//
// Children get the pids 1000, 1001, … and run until end() is called; their pipes are real. QEMU's
// monitor sockets are real socketpairs.
class FakeProcesses {
 public:
  explicit FakeProcesses(EffectLog& log);
  FakeProcesses(const FakeProcesses&) = delete;
  // All that live end, and are reaped.
  ~FakeProcesses();

  // The child ends: `waitStatus` is what waitpid() will say, e.g. 1 << 8 for exit code 1, 15 for a
  // SIGTERM. Its pipe reports it at the next turn.
  void end(int32_t pid, int waitStatus = 0);
  // Pids forked and not ended, oldest first.
  std::vector<int32_t> living() const;

  // The last connection that the agent made to the VM's monitor socket; there must have been one.
  QmpPeer& monitor(const std::string& vmName);
  // How many times it connected there with success.
  size_t connections(const std::string& vmName) const;
  // From now on the first `attempts` connects to the VM's socket are refused; -1: all.
  void refusalsAre(const std::string& vmName, int attempts);

  // The next call fails, with errno as given.
  int failPipe = 0;
  int failSocket = 0;
  bool failFork = false;
  bool failCalloc = false;
  // Socket files that there are; unlink() of another fails.
  std::set<std::string> files;

  // Pauses of the agent, in microseconds. They let the manual clock's time pass.
  std::vector<uint64_t> pauses;
  // Runs within each pause.
  std::function<void()> onPause;
  // How often connect() was called, for the VM's socket.
  int connectAttempts(const std::string& vmName) const;

  static FakeProcesses* current();

 private:
  friend struct SystemCalls;

  struct Child {
    OwnedDescriptor writeEnd;
    int waitStatus = 0;
    bool ended = false;
  };
  struct Monitor {
    int refusals = 0;
    int attempts = 0;
    std::vector<std::unique_ptr<QmpPeer>> peers;
  };
  static std::string pathOf(const std::string& vmName);

  EffectLog& log_;
  OwnedDescriptor newestWriteEnd_;
  int32_t nextPid_ = 1000;
  std::map<int32_t, Child> children_;
  std::map<std::string, Monitor> monitors_;  // by socket path
};

}  // namespace Vm::fakes
