// The part of the daemon that has to do with guests.
#pragma once

#include "host/Ground.h"
#include "host/StatusOfBefore.h"
#include "host/budget/Budget.h"
#include "host/budget/GroupWatch.h"
#include "host/guests/EarlierGuests.h"
#include "host/guests/ImageLooks.h"
#include "host/guests/Images.h"
#include "host/guests/LeftGuests.h"
#include "host/guests/Prompter.h"
#include "host/guests/VmSupervisor.h"

namespace host {

// The VMs' keepers, their disk images, and the guests that an earlier daemon left. The order of the
// members is that of their life.
class GuestSide {
 public:
  // `cards` outlives it.
  GuestSide(const Ground& ground, const StatusOfBefore& before, VmCards& cards);

  // What comes of the configuration; see ConfigurationTaker.
  void restartIs(const rt::String& vm, uint64_t number, bool ifEnded) {
    supervisor_->restartIs(vm, number, ifEnded);
  }
  void stopIs(const rt::String& vm, uint64_t number, int32_t within) {
    supervisor_->stopIs(vm, number, within);
  }
  void restartIsPast(const rt::String& vm, uint64_t number) {
    supervisor_->restartIsPast(vm, number);
  }
  void imageIs(const rt::String& vm, const std::optional<statedb::Record>& row) {
    images_.rowIs(vm, row);
  }
  void imageIsLost(const rt::String& vm) { images_.rowIsLost(vm); }
  void ownRowIs(const rt::String& vm);
  void rowIs(const rt::String& vm, const VmRow* row);
  void givenUpIs(const rt::String& vm, const rt::String& guest);
  // Who asked for what the VM's row, or its intent, says of its power now.
  void askedBy(const rt::String& vm, const rt::String& who) { states_->askedBy(vm, who); }

  // Which of the VM's cards without a line is told of as a problem.
  void cardIs(const rt::String& vm, const CardTrouble& card) { states_->cardIs(vm, card); }

  // Decides what becomes of the guests that run already, and follows what shims say of theirs. To
  // be called once the configuration is known.
  void begin();
  // See VmSupervisor.
  uint64_t turnsAsked() const { return supervisor_->turnsAsked(); }
  uint64_t turnsHad() const { return supervisor_->turnsHad(); }
  // Once a pass of the loop; returns whether there is more to do at once.
  bool pass();

 private:
  GuestBudget& guestBudget();
  void handleEvent(const GuestEvent& event);

  const Ground& ground_;
  const KernelGuestProcesses processes_;
  ImageRows imageRows_;
  const ImageLooks::Ptr imageLooks_;
  Images images_;
  KernelFiles machineFiles_;
  GroupWatch::Ptr groupWatch_;      // null: there are no groups
  std::unique_ptr<Budget> budget_;  // likewise
  NoBudget noBudget_;
  const VmStates::Ptr states_;
  const KeeperTools tools_;
  StartOrder order_;
  const VmSupervisor::Ptr supervisor_;
  const Prompter::Ptr prompter_;
  LeftGuests leftGuests_;
  EarlierGuests earlierGuests_;
  rt::Ptr<const rt::Entity> guestFiles_;  // followed; null: there are no shims
};

}  // namespace host
