// Who may take what of the machine's memory and processors.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <vector>

#include "host/budget/GroupValues.h"
#include "host/budget/GuestBudget.h"
#include "host/budget/GuestsGroup.h"
#include "host/database/OwnRows.h"
#include "model/GuestMemory.h"
#include "model/StatusRecords.h"
#include "runtime/base/Seconds.h"

namespace host {

// Has the kernel bound each guest, in a control group of its own that is made before it, and starts
// none for which there is no room:
//
//   a VM's group      | at a start           | when the VM has no process | else
//   ------------------+----------------------+----------------------------+----------------------
//   none              | is made              |                            |
//   without a process | is made anew         | is removed                 |
//   with one          | stays: its guest has | is ended, unless a shim    | is found again by the
//                     | a shim that the new  | keeps it, watched, and     | next daemon
//                     | one finds, or ends   | removed once it has none   |
//
// What is given counts until the group is gone: a QEMU that was killed still has its memory for a
// while.
class Budget final : public GuestBudget {
 public:
  struct Tools {
    MachineFiles& files;
    const OwnRows& rows;
    std::function<void(const rt::String& group)> watch;  // has look() called when it is empty
    std::function<void(const rt::String& vm)> again;     // a start that was refused may do now
    std::function<bool(const rt::String& vm)> isKept;    // the VM's guest has a shim
  };
  struct Settings {
    rt::String group;  // of all guests
    GuestsShare share;
    uint64_t reserve = 0;  // mebibytes that are to stay available
    model::Processor processor = model::Processor::real;
  };

  // Takes the groups that an earlier daemon left, and removes those without a process. `status`:
  // where it shows what is given.
  Budget(Tools tools, Settings settings, model::DaemonStatus::Ptr status);

  rt::String reserve(const Vm::VmConfig& vm) override;
  rt::String groupOf(const rt::String& vm) const override;
  void ended(const rt::String& vm) override;
  void release(const rt::String& vm) override;

  // The VM's row of vmLimits is another: has its guest bounded so.
  void limitsAre(const rt::String& vm);
  // Removes the groups of guests that have ended.
  void look();
  // Bounds again what somebody has unbound; to be called once a pass of the loop, and does so once
  // a minute.
  void pass(rt::Seconds now);

 private:
  struct Group {
    rt::String path;
    uint64_t need = 0;       // mebibytes, its reserve apart
    bool hasLived = false;   // there was somebody in it
    bool isLeaving = false;  // its VM has no process any more
  };

  model::Room room() const;
  uint64_t limitOf(const rt::String& vm, const Group& group) const;
  uint64_t given() const;
  bool isPopulated(const Group& group) const;
  bool isRemoved(const Group& group);
  rt::String reserveMore(const rt::String& vm, uint64_t need);
  void takeEarlier();
  rt::String make(const rt::String& vm, const Group& group);
  void bound(const rt::String& vm, const Group& group);
  bool remove(const rt::String& vm);
  void tellWaiting();
  void show();

  const Tools tools_;
  const Settings settings_;
  const model::DaemonStatus::Ptr status_;
  std::map<rt::String, Group> groups_;  // by VM
  std::set<rt::String> waiting_;        // VMs that were refused
  rt::Seconds next_{0};
};

}  // namespace host
