// One configured VM, handed to the agent and held to what is asked for.
#pragma once

#include <optional>

#include "host/database/VmRows.h"
#include "host/guests/KeeperTools.h"
#include "host/guests/Pacing.h"
#include "host/guests/UnknownGuest.h"
#include "host/guests/VmQueue.h"
#include "runtime/entity/Reactor.h"
#include "runtime/records/VmStatus.h"

namespace host {

// Mounts the VM's record for the agent, switched off, and later switches it as Pacing says.
//
//   row             | mounted record | it does
//   none, or none   | there          | removes it: the agent ends the guest
//     valid yet     |                |
//   of another VM   | there          | likewise; then mounts the new one
//     of that name  |                |
//   valid           | none           | mounts it
//   valid           | there          | makes it equal, its switch as Pacing says
//   lost            | there          | leaves it as long as there is a process; then removes it
//
// Created by the supervisor with the VM's row, and dropped once row and process are gone.
class VmKeeper final : public rt::StateMachineOf<VmKeeper> {
 public:
  // `tools` and `queue`, where it notes that it has something to do, outlive it. `restartsDone`:
  // the number of the restart that was carried out last.
  VmKeeper(const KeeperTools& tools, VmQueue& queue, rt::String name, uint64_t restartsDone);

  const rt::String& name() const { return name_; }

  void rowIs(const VmRow* row);  // null: there is none
  void restartIs(uint64_t number, bool ifEnded = false);
  // How many stops with a time of their own were asked for; and the time that the guest gets by the
  // last stop or restart, in seconds; negative: as always.
  void stopIs(uint64_t number, int32_t within);
  void restartIsPast(uint64_t number);      // the same, and nothing is to be done for it
  void givenUpIs(const rt::String& guest);  // the name of one that an operator gave up
  // What its shim finds wrong with its guest, or has found when it had one; empty: nothing.
  void guestProblemIs(const rt::String& problem);
  // How many processes of that name an earlier daemon left.
  void survivorsIs(size_t count);
  // Whether a guest goes on that the VM's start will take up: an earlier daemon's, or one that was
  // lost.
  void adoptableIs(bool adoptable);
  // A guest of an earlier daemon's goes on that is in no configuration; nothing: none does.
  void unknownIs(std::optional<UnknownGuest> guest);
  // What is known of its disk image is another thing now.
  void imageIsKnown();
  void ownRowsAreKnown() { note(); }

  // Does at most one thing that may take long, and returns whether it did. To be called again then,
  // when it notes itself, and when wakeUp() has come. What the agent's handlers throw passes
  // through; the next call goes on from there.
  bool act(rt::Seconds now);
  rt::Seconds wakeUp() const;
  // It is to run, and has no guest that could be taken up.
  bool isToBeStarted() const {
    return wanted_ && wanted_->enabled() && !hasProcess() && !adoptable_;
  }
  // Nothing is left of the VM.
  bool isDone() const;

  static constexpr std::string_view typeName = "host::VmKeeper";
  using Attributes = rt::AttributeTable<rt::Attribute<"name", &VmKeeper::name>,
                                        rt::Attribute<"initialized", &VmKeeper::initialized>>;

 private:
  void handleInitialized();
  void note() { queue_.note(name_); }
  void handleStatus();
  void handleMachine(const rt::Entity& machine, const rt::Change& change);
  void handleProcess(const rt::Entity& process, const rt::Change& change);

  bool mustGo() const;
  void giveUp();
  bool step(rt::Seconds now);
  void mount();
  void attend();
  void dismount();
  bool apply(Step step, rt::Seconds now);
  bool wouldStart(Step step) const;
  ImageVerdict::Kind judgeImage();
  ImageVerdict::Kind judgeStart();
  void ask();
  void start(Step step);
  void write(Step step);
  void writeRecord(Step step);
  bool hasProcess() const;
  bool isOutOfReach() const;
  void leaveOrder(rt::Seconds now);
  void lookForGuest();
  void endOverdue(rt::Seconds now);
  void processEnded();
  void ended();
  rt::String causeOfEnd() const;
  VmFacts facts() const;
  bool isToStartAgain() const;
  void tellGuest();
  std::optional<UnknownGuest> unknownGuest() const;
  bool isEnding() const;
  Wanted wantedState() const;
  void showProcess();
  void showState();
  void showRowProblem();
  void showImage();
  void showRoom();
  void showGuestProblem();
  bool hasOtherFormat() const;
  void showRestartNeeded();

  const KeeperTools& tools_;
  VmQueue& queue_;
  const rt::String name_;
  Pacing pacing_;
  uint64_t restart_ = 0;
  bool sparesGuest_ = false;  // the last of these does
  uint64_t stop_ = 0;
  std::optional<rt::Seconds> within_;
  rt::String rowProblem_;
  rt::String guestProblem_;
  rt::String givenUp_;
  size_t survivors_ = 0;
  bool adoptable_ = false;
  bool takesUp_ = false;    // the last start does, and its guest has not answered yet
  bool isUnmade_ = false;   // the process of the last start
  bool hasFailed_ = false;  // the last process, as far as the host sees
  bool isPolicys_ = false;  // the last start
  rt::Seconds killAt_ = rt::Seconds::infinity();  // its process, which was told to end
  std::optional<UnknownGuest> unknown_;           // an earlier daemon's
  Vm::VmConfig::Ptr wanted_;                      // what is in force, switch and all; null: nothing
  uint64_t vm_ = 0;                               // VmRow::vm
  statedb::Origin row_;
  bool hasRow_ = false;      // a refused one, perhaps
  bool isLost_ = false;      // a store has none that took the place of another
  bool changed_ = false;     // wanted_ was not written to the record yet, or not all of it
  bool isRepeated_ = false;  // the last write threw
  Vm::VmConfig::Ptr mounted_;
  uint64_t mountedVm_ = 0;
  Vm::VmConfig::Ptr startedWith_;        // what the running process was started with
  rt::String startedFormat_;             // what it opened its disk image as
  std::optional<statedb::Origin> told_;  // of which row it was told that it is
  ImageVerdict image_;                   // the last
  bool awaitsImage_ = false;             // to be judged
  bool awaitsTurn_ = false;              // its start
  rt::String noRoom_;                    // why the machine has none for it; empty: it has

  rt::Reactor<VmKeeper, const Vm::VmStatus, rt::On<&Vm::VmStatus::enabled, &VmKeeper::handleStatus>,
              rt::On<&Vm::VmStatus::state, &VmKeeper::handleStatus>>
      status_;
  rt::AnyReactor<VmKeeper, &VmKeeper::handleMachine> machine_;
  rt::AnyReactor<VmKeeper, &VmKeeper::handleProcess> process_;
};

}  // namespace host
