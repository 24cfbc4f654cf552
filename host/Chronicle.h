// Makes events of what the daemon's parts come to know.
#pragma once

#include <functional>
#include <map>

#include "host/database/Configuration.h"
#include "host/database/History.h"
#include "host/database/OwnRows.h"
#include "host/state/GuestEvent.h"
#include "model/ProblemSource.h"

namespace host {

// Puts into words what is asked for, found wrong and told by shims; how VMs are, VmStates tells by
// itself. Owned by the daemon.
class Chronicle {
 public:
  // `timeOfDay`: ms since 1970.
  Chronicle(History& history, std::function<uint64_t()> timeOfDay)
      : history_(history), timeOfDay_(std::move(timeOfDay)) {}
  Chronicle(const Chronicle&) = delete;

  // The daemon begins, or ends in order.
  void daemonBegins(const rt::String& version, int32_t pid);
  void daemonEnds();

  // To be called before the changes are taken, and again when they are: what is known of each VM
  // until then, and from then on.
  void configChanges(const std::vector<statedb::Change>& changes, const VmRows& rows,
                     const OwnRows& own);
  void configChanged(const std::vector<statedb::Change>& changes, const VmRows& rows,
                     const OwnRows& own);
  // What was changed while no daemon ran, whose log goes on from where the earlier one was.
  void configWasChanged(const std::vector<statedb::Change>& changes);

  // The weightiest problem of a VM is another one; empty: there is none any more.
  void problemIs(const rt::String& vm, const rt::String& text, model::ProblemSource source);

 private:
  model::Event::Ptr made(const char* kind, const rt::String& vm, const rt::String& reason,
                         const char* severity, const rt::String& text) const;
  void addChange(const statedb::Change& change, const rt::String& reason, const rt::String& text);
  void tellOwn(const statedb::Change& change, const rt::String& member, const OwnRows& own);
  void tellVm(const statedb::Change& change, const VmRows& rows);
  void tellIntent(const statedb::Change& change);

  History& history_;
  const std::function<uint64_t()> timeOfDay_;
  std::map<rt::String, Vm::VmConfig::Ptr> before_;  // of those that are about to change
  std::map<rt::String, model::VmOwn> ownBefore_;    // likewise
  struct Known {
    rt::String text;
    model::ProblemSource source{};
  };
  std::map<rt::String, Known> problems_;  // those that were told, by VM
};

// What the guest was reset by, panicked of or the like, or an operator did to it, as an event of
// its VM's; null: what the shim told is no such thing. `resetBy`: the operator who asked for a
// reset; empty: none did.
model::Event::Ptr happeningOf(const GuestEvent& event, const rt::String& resetBy);

}  // namespace host
