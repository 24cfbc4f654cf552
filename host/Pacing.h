// When one VM is switched on and off.
//
// The agent does what the configuration says, once, and tries nothing again. When to say it again
// is decided here.
#pragma once

#include <cstdint>
#include <limits>

#include "runtime/base/Seconds.h"

namespace host {

// What is so of one VM, and what is asked for.
struct VmFacts {
  bool wanted = false;         // its row is valid and says enabled
  bool switchedOn = false;     // what the agent was told last
  bool statusEnabled = false;  // what the agent made of it
  bool process = false;        // a QEMU of that name is there, an earlier VM's perhaps
  uint64_t restart = 0;        // the number of its restart intent
};

enum class Step : uint8_t {
  none,
  switchOn,
  switchOff,
  pulse,  // off and on again, at once: the agent's start had failed
};

// Pure: knows no clock and no VM. Owned by the VM's keeper, which carries out what it says.
//
//   wanted | switched on | process | started | step
//   no     | yes         |         |         | switchOff
//   yes    | yes         |         |         | switchOff, where a restart is asked for
//   yes    | no          | yes     |         | none, until the process is gone
//   yes    | no          | no      |         | switchOn
//   yes    | yes         | no      | no      | pulse after 1 s, 2 s, 4 s, ... 60 s
//   otherwise                                | none
class Pacing {
 public:
  static constexpr rt::Seconds firstDelay{1};
  static constexpr rt::Seconds longestDelay{60};

  // `done`: the number of the restart that was carried out last.
  explicit Pacing(uint64_t done) : restartsDone_(done) {}

  // What to do now. To be asked again when a fact changed or wakeUp() has come.
  Step next(const VmFacts& facts, rt::Seconds now);
  // When to ask again; infinity: when told.
  rt::Seconds wakeUp() const { return retryAt_; }
  // The configuration changed: what failed before may do now.
  void hurry();
  uint64_t restartsDone() const { return restartsDone_; }

 private:
  static constexpr rt::Seconds never = rt::Seconds::infinity();

  Step retry(rt::Seconds now);
  void settle();

  uint64_t restartsDone_;
  rt::Seconds retryAt_ = never;
  rt::Seconds delay_ = firstDelay;
};

}  // namespace host
