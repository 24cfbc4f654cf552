// Keeps one QEMU from its start to its end.
#pragma once

#include <poll.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "shim/box/GuestGroup.h"
#include "shim/box/GuestUser.h"
#include "shim/decide/Arguments.h"
#include "shim/decide/Askers.h"
#include "shim/decide/OutputLines.h"
#include "shim/decide/Relay.h"
#include "shim/decide/StopPlan.h"
#include "shim/decide/Succession.h"
#include "shim/keep/BoundedLog.h"
#include "shim/keep/Console.h"
#include "shim/keep/ControlServer.h"
#include "shim/keep/Environment.h"
#include "shim/keep/EventFile.h"
#include "shim/keep/ListeningSocket.h"
#include "shim/keep/Parent.h"
#include "shim/keep/Picture.h"
#include "shim/keep/Poller.h"
#include "shim/keep/RowMark.h"
#include "shim/keep/VmDirectory.h"
#include "shim/keep/Wire.h"

namespace shim {

// The signals that a shim takes one by one: to be blocked before any of this.
sigset_t keeperSignals();

// On the monotonic clock.
Time now();

// Moves bytes, time and signals between the system and those who decide: Relay and StopPlan. What
// it is given must outlive it. Sleeps until something happens or is due.
class Keeper {
 public:
  // The VM is locked and the agent's socket listens. Starts QEMU; throws Failure.
  Keeper(const Environment& environment, const CommandLine& line, const std::string& argv0,
         const VmDirectory& directory, VmLock& lock, std::unique_ptr<ListeningSocket> socket,
         const Parent& parent);
  Keeper(const Keeper&) = delete;

  // Until QEMU has ended and all that it left is where it belongs: its wait status. The agent's
  // connection is still open then.
  int run();

 private:
  // Entries in what is polled: first the busy ones.
  enum Entry : size_t { listener, agent, qemu, signals, output, daemon, screen, console };

  void start(const Environment& environment, const CommandLine& line, const std::string& argv0);
  std::vector<pollfd> polled();
  int timeout() const;
  void handle(const std::vector<pollfd>& polled);
  void handleSignals();
  void handleEndingSignal(unsigned signal, pid_t sender);
  void acceptAgent();
  void acceptViewer();
  void receiveFromAgent();
  void receiveFromQemu();
  bool receiveOutput();
  void passTime();
  void perform(Actions actions);
  StopPlan::Guest guest() const;
  void stop(StopStep step);
  control::State state() const;
  control::Status status() const;
  Message answer(ControlServer::Client client, const control::Request& request,
                 rt::Descriptors descriptors);
  void orderlyStop(ControlServer::Client client, const control::Request& request);
  Message wish(ControlServer::Client client, const control::Request& request);
  void tellOutcome(const Actions::Outcome& outcome);
  void tellOfWish(ControlServer::Client client, std::string_view what, const std::string& by);
  void adopt(ControlServer::Client client, const control::Adoption& adoption,
             rt::Descriptors descriptors);
  void takeRow(ControlServer::Client client, const control::Row& row);
  void takeLine(ControlServer::Client client, const control::Line& line);
  void handleDaemonsEnd();
  void lookForSuccessor();
  void leaveSocket();
  void tellOfEnd();
  void showProblems();
  void logLines(const std::vector<std::string>& lines);
  void collectRest();
  std::string causeOfEnd(const std::optional<GuestGroup::Memory>& memory) const;
  void writeEnd();

  const std::string name_;
  const CommandLine& line_;
  const Duration stopTimeout_;
  const VmDirectory& directory_;
  VmLock& lock_;
  const GuestUser user_;    // QEMU's
  const GuestGroup group_;  // likewise
  const RowMark rowMark_;
  std::unique_ptr<ListeningSocket> socket_;
  BoundedLog log_;
  EventFile events_;
  rt::Descriptor signals_;
  rt::Descriptor output_;
  std::unique_ptr<Console> console_;
  std::unique_ptr<ListeningSocket> screen_;  // null: there is none
  std::unique_ptr<Wire> qemu_;
  std::unique_ptr<Wire> agent_;
  std::unique_ptr<Relay> relay_;
  std::unique_ptr<ControlServer> control_;
  size_t controlPlace_ = 0;  // in what is polled
  Askers askers_;
  StillPicture stillPicture_;
  Poller poller_{Entry::signals};
  StopPlan stop_;
  pid_t daemonPid_;
  rt::Descriptor daemon_;  // its process; none when it was gone before we looked
  Succession succession_;
  std::optional<ControlServer::Client> successor_;
  std::vector<std::string> restartReasons_;
  OutputLines lines_;
  std::map<std::string, std::string> imageNames_;  // what QEMU calls the images -> their paths
  pid_t pid_ = -1;
  std::optional<int> status_;
  std::string killedFor_;
  std::string endedBy_;  // a stranger's signal
  std::string shownProblem_;
  size_t qemuDropped_ = 0;
};

}  // namespace shim
