// When a card that is cut off is attached anew.
#pragma once

#include "runtime/base/Seconds.h"

namespace host {

// How a card is, as far as the host can see.
enum class CardState : uint8_t {
  idle,  // nothing is to be done: its interface is not there, or its guest has not got so far
  busy,  // the agent waits for QEMU: it will be well or sick
  well,  // attached, and its device is there, up, on its interface
  sick,  // all is there for it to be attached, and it is not
};

// Knows no clock and no card. Pure. Owned by the healer, one for each card, which carries out what
// it says.
//
//   state | the card               | it says
//   sick  | was not                | nothing: news may be on the way; look again in 1 s
//   sick  | was sick 1 s ago       | cure
//   sick  | was cured              | cure 2 s, 4 s, 8 s, … 300 s after the cure before
//   busy  |                        | nothing; look again in 1 s
//   idle, | was sick               | nothing; a relapse is cured as late as if it had stayed sick,
//    well |                        |   until it was better for as long as the last delay
//
// A cure may hold the daemon up, while a device is waited for: the next one then comes later, so
// that no more than a thirtieth of the time is given to them.
class Healing {
 public:
  static constexpr rt::Seconds patience{1};
  static constexpr rt::Seconds longestDelay{300};

  // Returns whether to cure it now. To be asked again when something changed or wakeUp() has come.
  bool next(CardState state, rt::Seconds now);
  // A cure was tried between these times.
  void cured(rt::Seconds begun, rt::Seconds ended);
  // What was in the way of a cure has gone: the next one need not wait.
  void hurry() { cureAt_ = rt::Seconds(0); }
  // When to ask again; infinity: when told.
  rt::Seconds wakeUp() const { return wakeUp_; }
  // Whether it is sick though it was cured more than once.
  bool isStubborn() const { return isSick_ && delay_ > firstDelay + firstDelay; }

 private:
  static constexpr rt::Seconds never = rt::Seconds::infinity();
  static constexpr rt::Seconds firstDelay{1};

  void fallSick(rt::Seconds now);

  bool isSick_ = false;
  rt::Seconds betterAt_{0};  // since when it is not sick
  rt::Seconds curedAt_{0};
  rt::Seconds delay_ = firstDelay;  // from then to the next cure
  rt::Seconds cureAt_ = never;
  rt::Seconds wakeUp_ = never;
};

}  // namespace host
