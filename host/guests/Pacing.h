// When one VM is switched on and off.
//
// The agent does what the configuration says, once, and tries nothing again. When to say it again
// is decided here.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>

#include "runtime/base/Seconds.h"

namespace host {

// What is so of one VM, and what is asked for.
struct VmFacts {
  bool wanted = false;         // its row is valid and says enabled
  bool switchedOn = false;     // what the agent was told last
  bool statusEnabled = false;  // what the agent made of it
  bool process = false;        // a QEMU of that name is there, an earlier VM's perhaps
  bool takingUp = false;       // it was an earlier daemon's, and has said nothing to the agent yet
  bool adoptable = false;      // a guest is there that a start takes up
  bool starting = false;       // its guest was not let run yet, or not by this agent
  bool inVain = false;         // the agent takes its start for done, and has no guest of it
  bool again = false;          // its guest has ended, and by its policy it is started again
  uint64_t restart = 0;        // the number of its restart intent
  bool sparesGuest = false;    // that is of a guest that has ended
  uint64_t stop = 0;           // and of its stops that had a time of their own
  // What the guest gets to shut itself down by the last of either; nothing: as always.
  std::optional<rt::Seconds> within{};
};

enum class Step : uint8_t {
  none,
  switchOn,
  ask,  // the guest to shut itself down, which is then waited for
  switchOff,
  pulse,  // off and on again, at once: the agent's start had failed, or was in vain
};

// Pure: knows no clock and no VM. Owned by the VM's keeper, which carries out what it says.
//
//   wanted | switched on | process | started | step
//   no     | yes         | yes     |         | ask, once the guest is taken up: its shim would
//          |             |         |         | start another for one that ends before; switchOff
//          |             |         |         | once it is gone, or time is up; asked once more when
//          |             |         |         | an operator gives it less time
//   no     | yes         | no      |         | switchOff
//   yes    | yes         |         |         | likewise, where a restart is asked for that does not
//          |             |         |         | spare it, or it was asked to end already
//   yes    | no          | yes     |         | none, until the process is gone
//   yes    | no          | no      |         | switchOn; one that was refused is tried again after
//          |             |         |         | 1 s, 2 s, 4 s, ... 60 s
//   yes    | yes         | no      | no, or  | pulse after 1 s, 2 s, 4 s, ... 60 s
//          |             |         | in vain |
//   yes    | yes         | no      | yes     | where its policy says so, pulse after 1 s, 2 s, 4 s,
//          |             |         |         | ... 300 s; after 1 s again when it ran for 600 s
//   otherwise                                | none
class Pacing {
 public:
  static constexpr rt::Seconds firstDelay{1};
  static constexpr rt::Seconds longestDelay{60};
  static constexpr rt::Seconds longestRestartDelay{300};
  static constexpr rt::Seconds longRun{600};

  // `done`: the number of the restart that was carried out last. `patience`: how long a guest that
  // was asked may take.
  explicit Pacing(uint64_t done, rt::Seconds patience = rt::Seconds(0))
      : restartsDone_(done), patience_(patience) {}

  // What to do now. To be asked again when a fact changed or wakeUp() has come.
  Step next(const VmFacts& facts, rt::Seconds now);
  // The same for a VM that is to go, whatever its row says: ask, none, and at last switchOff.
  Step leave(const VmFacts& facts, rt::Seconds now);
  // What a guest that is to end now gets to shut itself down, where an operator has said so. What
  // was said of an earlier end counts for none that comes later.
  std::optional<rt::Seconds> ownTime(const VmFacts& facts) const;
  // There was nobody to ask: it will not end by itself.
  void askFailed() { giveUpAt_ = rt::Seconds(0); }
  // Its guest is to end, and is waited for.
  bool isLeaving() const { return giveUpAt_.has_value(); }
  // The start that next() asked for has to wait for something that will be told of.
  void deferred() { retryAt_ = rt::Seconds(0); }
  // The start that next() asked for was not made.
  void refused(rt::Seconds now) { schedule(now); }
  // What is to be tried again is to be tried now.
  void again();
  // When to ask again; infinity: when told.
  rt::Seconds wakeUp() const { return std::min(tryAt(), stopAt()); }
  // When a start that failed is tried again, and when a guest is switched off that was asked to
  // end; infinity: never.
  rt::Seconds tryAt() const { return retryAt_; }
  rt::Seconds stopAt() const { return giveUpAt_.value_or(never); }
  // The configuration changed: what failed before may do now.
  void hurry();
  uint64_t restartsDone() const { return restartsDone_; }
  // Nothing is to be done for the restarts up to that number.
  void restartsDoneIs(uint64_t number) { restartsDone_ = number; }

 private:
  static constexpr rt::Seconds never = rt::Seconds::infinity();

  rt::Seconds patienceFor(const VmFacts& facts) const;
  Step start(const VmFacts& facts, rt::Seconds now);
  Step retry(rt::Seconds now);
  Step startAgain(rt::Seconds now);
  void schedule(rt::Seconds now);
  void settle();

  uint64_t restartsDone_;
  uint64_t stopsDone_ = 0;
  rt::Seconds patience_;
  std::optional<rt::Seconds> giveUpAt_;  // since the guest is to end
  bool isAsked_ = false;                 // since then
  uint64_t asked_ = 0;                   // how often operators had asked for an end by then
  rt::Seconds retryAt_ = never;
  rt::Seconds delay_ = firstDelay;
  rt::Seconds restartDelay_ = firstDelay;
  std::optional<rt::Seconds> runsSince_;  // its guest, if it does or has until it ended
};

}  // namespace host
