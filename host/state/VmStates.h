// The state of all VMs, kept true.
#pragma once

#include <functional>
#include <map>

#include "host/base/HostStatus.h"
#include "host/state/VmState.h"
#include "runtime/loop/Clock.h"

namespace host {

// Puts together what keepers, shims and all who find something wrong know of each VM, and writes
// what that means into the VM's record, whenever it means something else. Owned by the daemon.
class VmStates final : public rt::StateMachineOf<VmStates> {
 public:
  struct Times {
    std::function<uint64_t()> ofDay;      // s since 1970
    std::function<uint64_t()> sinceBoot;  // ms
  };
  // What an earlier daemon had written.
  struct Before {
    rt::String actual;
    uint64_t since = 0;
  };
  // `catchUp`: tells all that the VM's shim has told until now. A guest's end is judged only then.
  VmStates(HostStatus::Ptr status, Times times, std::map<rt::String, Before> before,
           std::function<void(const rt::String& vm)> catchUp, rt::Clock::Ptr clock);

  // A VM is there from the first of these on until vmDel().
  void keeperSays(const rt::String& vm, const KeeperView& view);
  void vmDel(const rt::String& vm);

  // Whether the VM's guest does not answer the agent.
  void unansweredIs(const rt::String& vm, bool isUnanswered);
  void eventIs(const GuestEvent& event);
  // The weightiest that is wrong; empty: nothing.
  void problemIs(const rt::String& vm, const rt::String& text, model::ProblemSource source);

  static constexpr std::string_view typeName = "host::VmStates";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &VmStates::initialized>>;

 private:
  struct Entry {
    KeeperView view;
    bool isKnown = false;  // its keeper has said something
    bool isUnanswered = false;
    GuestRun run;
    End end;
    uint64_t judged = 0;  // the run whose end is known
    uint64_t attempt = 0;
    rt::Seconds lastTry = rt::Seconds::infinity();
    rt::String problem;
    model::ProblemSource problemSource{};
    rt::Seconds wakeUp = rt::Seconds::infinity();
  };

  void handleInitialized();
  void handleClock();
  void judgeEnd(Entry& entry) const;
  void countAttempts(Entry& entry) const;
  Situation situationOf(const Entry& entry) const;
  std::optional<uint64_t> upAt(rt::Seconds time) const;
  uint64_t timeOfDayAt(uint64_t up) const;
  void show(const rt::String& vm, Entry& entry);
  void write(model::VmProcess& record, const rt::String& vm, const Situation& now) const;
  void writeSince(model::VmProcess& record, const rt::String& vm, const rt::String& actual);
  void setClock();

  const HostStatus::Ptr status_;
  const Times times_;
  std::map<rt::String, Before> before_;
  const std::function<void(const rt::String& vm)> catchUp_;
  std::map<rt::String, Entry> entries_;

  rt::ClockReactor<VmStates, &VmStates::handleClock> clock_;
};

}  // namespace host
