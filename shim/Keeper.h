// Keeps one QEMU from its start to its end.
#pragma once

#include <poll.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "shim/AgentSocket.h"
#include "shim/Arguments.h"
#include "shim/BoundedLog.h"
#include "shim/Console.h"
#include "shim/Environment.h"
#include "shim/OutputLines.h"
#include "shim/Relay.h"
#include "shim/StopPlan.h"
#include "shim/VmDirectory.h"
#include "shim/Wire.h"

namespace shim {

// The signals that a shim takes one by one: to be blocked before any of this.
sigset_t keeperSignals();

// Moves bytes, time and signals between the system and those who decide: Relay and StopPlan. What
// it is given must outlive it. Sleeps until something happens or is due.
class Keeper {
 public:
  // The VM is locked and the agent's socket listens. Starts QEMU; throws Failure.
  Keeper(const Environment& environment, const CommandLine& line, const std::string& argv0,
         const VmDirectory& directory, VmLock& lock, AgentSocket& socket);
  Keeper(const Keeper&) = delete;

  // Until QEMU has ended and all that it left is where it belongs: its wait status. The agent's
  // connection is still open then, and its path is gone.
  int run();

 private:
  // Places in what is polled.
  enum Place : size_t { signals, listener, agent, qemu, output, console };

  void start(const Environment& environment, const CommandLine& line, const std::string& argv0);
  std::vector<pollfd> polled() const;
  int timeout() const;
  void handle(const std::vector<pollfd>& polled);
  void handleSignals();
  void acceptAgent();
  void receiveFromAgent();
  void receiveFromQemu();
  bool receiveOutput();
  void passTime();
  void perform(Actions actions);
  void stop(StopStep step);
  void logLines(const std::vector<std::string>& lines);
  void collectRest();
  void writeLastError() const;

  const VmDirectory& directory_;
  VmLock& lock_;
  AgentSocket& socket_;
  BoundedLog log_;
  Descriptor signals_;
  Descriptor output_;
  std::unique_ptr<Console> console_;
  std::unique_ptr<Wire> qemu_;
  std::unique_ptr<Wire> agent_;
  std::unique_ptr<Relay> relay_;
  StopPlan stop_;
  OutputLines lines_;
  pid_t pid_ = -1;
  std::optional<int> status_;
  std::string killedFor_;
  size_t qemuDropped_ = 0;
};

}  // namespace shim
