// What becomes of a guest that runs already, by what the configuration says of its VM.
#pragma once

#include <cstdint>

namespace host {

enum class RowWord : uint8_t {
  none,     // there is no row
  unclear,  // nothing in it is understood
  off,
  on,
};

struct GuestFacts {
  RowWord row = RowWord::none;
  // Whether the row that the guest was started by was removed, in the history that it was made in.
  // A row that only is not there, in a store that is empty, older or another's, is none of it.
  bool isRemoved = false;
  // Whether an operator has named this very guest as one to end.
  bool isGivenUp = false;
  // Whether its shim is there to be asked.
  bool canBeDriven = false;
};

enum class GuestFate : uint8_t {
  ends,
  takenUp,  // by its VM's start
  waits,    // until its VM's row is understood
  unknown,  // goes on, and is shown to be in no configuration
};

// Pure.
//
//   its VM's row  | its own row was removed | it
//   --------------+-------------------------+----------------------------------------------------
//   any, or none  | yes                     | ends: a row that is there is another VM's
//   off           | no                      | ends
//   on            | no                      | is taken up; ends where nobody can drive it, for a
//                 |                         |   VM may run once only
//   unclear       | no                      | waits
//   none          | no                      | is unknown; ends once it is given up
GuestFate fateOf(const GuestFacts& facts);

}  // namespace host
