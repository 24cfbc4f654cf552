// The state of all VMs, kept true.
#pragma once

#include <functional>
#include <map>

#include "host/base/HostStatus.h"
#include "host/state/VmState.h"
#include "model/EndCounts.h"
#include "model/Event.h"
#include "runtime/loop/Clock.h"

namespace host {

// Puts together what keepers, shims and all who find something wrong know of each VM, and writes
// what that means into the VM's record, whenever it means something else. Owned by the daemon.
class VmStates final : public rt::StateMachineOf<VmStates> {
 public:
  struct Times {
    std::function<uint64_t()> ofDay;      // ms since 1970
    std::function<uint64_t()> sinceBoot;  // ms
  };
  // Of a VM's runs since the machine was booted. What a shim has told is read anew by each daemon:
  // no run counts twice.
  struct Counts {
    uint64_t starts = 0;
    model::EndCounts ends{};
    uint64_t startedRun = 0;  // the newest that is counted
    uint64_t endedRun = 0;
  };
  // What an earlier daemon had written.
  struct Before {
    rt::String actual;
    uint64_t since = 0;
    Counts counts{};
    End end{};  // of its last run, perhaps of another boot
  };
  struct Others {
    // Tells all that the VM's shim has told until now. A guest's end is judged only then.
    std::function<void(const rt::String& vm)> catchUp;
    // Is told of each change of how a VM is, and of each end.
    std::function<void(const model::Event::Ptr& event)> tell;
    // Are told of each run that goes on, of each end, and of each VM that is gone.
    std::function<void(const rt::String& vm, const GuestRun& run)> runs = [](const auto&,
                                                                             const auto&) {};
    std::function<void(const rt::String& vm, uint64_t run, const End& end)> ended =
        [](const auto&, uint64_t, const auto&) {};
    std::function<void(const rt::String& vm)> gone = [](const auto&) {};
  };
  VmStates(HostStatus::Ptr status, Times times, std::map<rt::String, Before> before, Others others,
           rt::Clock::Ptr clock);

  // Its keeper has a turn: what is told of the VM meanwhile is shown at its end, for only all of it
  // together is true.
  void turnBegins(const rt::String& vm) { inTurn_ = vm; }
  void turnEnds(const rt::String& vm);
  // A VM is there from the first of these on until vmDel().
  void keeperSays(const rt::String& vm, const KeeperView& view);
  void vmDel(const rt::String& vm);

  // Its process was told to end, did not in time, and is killed.
  void overdueIs(const rt::String& vm);
  // Whether the VM's guest does not answer the agent.
  void unansweredIs(const rt::String& vm, bool isUnanswered);
  void eventIs(const GuestEvent& event);
  // How its last run has ended; nothing: it goes on, or nobody knows of it.
  std::optional<End> lastEnd(const rt::String& vm) const;
  // Which operator asked to end or start it last; empty: nobody knows.
  void askedBy(const rt::String& vm, const rt::String& who);
  // Which operator asked its shim for a reset last, and nobody asked since; empty: none.
  rt::String takeResetBy(const rt::String& vm);
  // The weightiest of its cards that have no line, which is told of as a problem then.
  void cardIs(const rt::String& vm, const CardTrouble& card);
  // The weightiest that is wrong; empty: nothing.
  void problemIs(const rt::String& vm, const rt::String& text, model::ProblemSource source);

  static constexpr std::string_view typeName = "host::VmStates";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &VmStates::initialized>>;

 private:
  struct Entry {
    KeeperView view;
    bool isKnown = false;  // its keeper has said something
    bool isUnanswered = false;
    bool isOverdue = false;  // its process was killed for that
    GuestRun run;
    End end;
    uint64_t judged = 0;  // the run whose end is known
    Counts counts;
    bool isEndNews = false;  // it was told just now, and says what a change of state would say
    rt::String askedBy;
    uint64_t attempt = 0;
    rt::Seconds lastTry = rt::Seconds::infinity();
    rt::String problem;
    model::ProblemSource problemSource{};
    CardTrouble card;
    rt::Seconds wakeUp = rt::Seconds::infinity();
  };

  void handleInitialized();
  void handleClock();
  Entry& entryOf(const rt::String& vm);
  // Returns whether it has ended.
  bool judgeEnd(const rt::String& vm, Entry& entry);

  void tellState(const rt::String& vm, Entry& entry, const Situation& now);
  void countAttempts(Entry& entry) const;
  Situation situationOf(const Entry& entry) const;
  std::optional<uint64_t> upAt(rt::Seconds time) const;
  uint64_t timeOfDayAt(uint64_t up) const;
  void show(const rt::String& vm, Entry& entry);
  void write(model::VmProcess& record, const rt::String& vm, const Situation& now) const;
  // Returns whether it was something else until now.
  bool writeSince(model::VmProcess& record, const rt::String& vm, const rt::String& actual);
  void setClock();

  const HostStatus::Ptr status_;
  const Times times_;
  std::map<rt::String, Before> before_;
  const Others others_;
  rt::String inTurn_;  // the VM whose keeper has a turn; empty: none
  std::map<rt::String, Entry> entries_;
  // By VM that was removed: its last run. What comes of it late is not the next one's of that name.
  std::map<rt::String, uint64_t> buried_;

  rt::ClockReactor<VmStates, &VmStates::handleClock> clock_;
};

// How a run has ended, as an event of the VM's. `run`: 0 where none is known.
model::Event::Ptr eventOf(const rt::String& vm, const End& end, uint64_t run);

}  // namespace host
