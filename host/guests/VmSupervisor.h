// All configured VMs, held to what is asked for.
#pragma once

#include <map>
#include <set>
#include <utility>

#include "host/guests/VmKeeper.h"
#include "runtime/loop/Clock.h"

namespace host {

// Keeps a keeper for each VM that has a row or a process, and lets them act a little at a time, so
// that the loop turns between two starts.
class VmSupervisor final : public rt::StateMachineOf<VmSupervisor> {
 public:
  // `restartsDone`: of the VMs that an earlier daemon knew.
  VmSupervisor(KeeperTools tools, std::map<rt::String, uint64_t> restartsDone,
               rt::Clock::Ptr clock);

  // What the rows of vmConfig and vmIntent say now; the row may be null.
  void rowIs(const rt::String& vm, const VmRow* row);
  void restartIs(const rt::String& vm, uint64_t number, bool ifEnded = false);
  // How many stops with a time of their own, and the time of the last stop or restart: seconds;
  // negative: as always.
  void stopIs(const rt::String& vm, uint64_t number, int32_t within);
  // A number that was asked for in another configuration than this daemon knows: all that is past.
  void restartIsPast(const rt::String& vm, uint64_t number);
  // The name of a guest of the VM's that an operator gave up; empty: of none.
  void givenUpIs(const rt::String& vm, const rt::String& guest);
  // What the VM's shim finds wrong with its guest; empty: nothing.
  void guestProblemIs(const rt::String& vm, const rt::String& problem);
  // How many processes of that name an earlier daemon left.
  void survivorsIs(const rt::String& vm, size_t count);
  // Whether an earlier daemon left a guest that the VM's start will take up.
  void adoptableIs(const rt::String& vm, bool adoptable);
  // A guest of an earlier daemon's goes on that is in no configuration; nothing: none does.
  void unknownIs(const rt::String& vm, std::optional<UnknownGuest> guest);
  // What is known of the VM's disk image is another thing now.
  void imageIsKnown(const rt::String& vm);
  // The host's own rows of it are others now.
  void ownRowsAreKnown(const rt::String& vm);

  // All rows, and all guests that are there, are known: starts what is to run, in order.
  void begin();
  // Once a pass of the loop: lets those act that have something to do, until one did what may take
  // long. Returns whether there is more to do at once. What a handler throws is reported, and the
  // other VMs go on.
  bool pass();

  // How many turns keepers have asked for, and how many they had: what was told of a VM shows in
  // its rows once it had the turn that was asked for by then.
  uint64_t turnsAsked() const { return queue_.noted(); }
  uint64_t turnsHad() const { return queue_.taken(); }

  static constexpr std::string_view typeName = "host::VmSupervisor";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &VmSupervisor::initialized>>;

 private:
  void handleInitialized();
  void handleClock();
  VmKeeper& keeper(const rt::String& vm);
  bool act(const rt::String& vm);
  void fail(const rt::String& vm, const rt::String& failure);
  void drop(const rt::String& vm);
  void wakeUpIs(const rt::String& vm, rt::Seconds time);
  void setClock();

  KeeperTools tools_;
  std::map<rt::String, uint64_t> restartsDone_;
  struct Restart {
    uint64_t number = 0;
    bool ifEnded = false;
  };
  std::map<rt::String, Restart> restarts_;  // asked for
  struct Stop {
    uint64_t number = 0;
    int32_t within = -1;
  };
  std::map<rt::String, Stop> stops_;
  VmQueue queue_;
  std::map<rt::String, VmKeeper::Ptr> keepers_;
  std::map<rt::String, rt::String> failures_;  // what the last act threw
  std::map<rt::String, rt::Seconds> wakeUps_;
  std::set<std::pair<rt::Seconds, rt::String>> wakeUpOrder_;  // the same, the earliest first

  rt::ClockReactor<VmSupervisor, &VmSupervisor::handleClock> clock_;
};

}  // namespace host
