// What may never happen, looked at whenever something does.
#pragma once

#include <map>
#include <string>

#include "sim/oracle/Diary.h"
#include "sim/oracle/Ledger.h"
#include "sim/oracle/Scene.h"

namespace sim {

// Fails the world when
//   one-qemu      a second QEMU has a VM's disk, or is a VM's
//   unasked-start a guest starts whose VM is off
//   unasked-end   a guest ends, and nothing in the ledger could be why
//   shim-end      a shim of the daemon's fails likewise
//   daemon-end    a daemon does
//   abort         one of our programs does, or is ended by a fault of its own
//   device        the daemon removes the device or entry of a guest that runs and was left alone
//   carrier       a card of a guest that runs loses the device that is there
//   signal        one of our programs signals a process that is none of its business
//   close         one of our programs closes what is not open
//   stands        the daemon does not come back to its loop for a while
class Watch {
 public:
  Watch(World& world, Ledger& ledger, Diary& diary);
  Watch(const Watch&) = delete;

  // At the beginning of each call.
  void enter(const Process& process, const CallNote& note);
  // How long the daemon may be away from its loop.
  Duration longestAbsence = std::chrono::seconds(1);
  // It stands still, or another does that it waits for.
  void forgiveAbsence() { backSince_ = never; }
  // A start whose socket could not be put in place looks for it for ten seconds.
  void forgiveNextAbsence() { forgivesUntil_ = world_.machine.now() + std::chrono::seconds(15); }

 private:
  struct Guest {
    std::string vm;
    Time began;
    InodePtr disk;
    std::vector<std::string> macs;  // of its cards
  };

  void fail(const std::string& clause, const std::string& about, const std::string& text);
  void handleQemu(pid_t pid, const Qemu& qemu);
  void handleEnd(const Process& process, int waitStatus);
  void handleGuestsEnd(const Guest& guest, int waitStatus);
  bool wasGivenIts(const Process& standIn, const std::string& vm) const;
  void handleShimsEnd(const Process& process, int waitStatus);
  void noteOrphans();
  void handleRemoval(const Link& link);
  void handleSignal(const Process& target, int number);
  void leave(const Process& process, const CallNote& note, Result result);

  World& world_;
  Ledger& ledger_;
  Diary& diary_;
  std::map<pid_t, Guest> guests_;
  std::map<std::string, std::pair<Time, std::string>>
      ends_;  // the last of each VM's guests, and why
  Time forgivesUntil_{};
  Time backSince_ = never;  // that the daemon works; never: it waits
};

}  // namespace sim
