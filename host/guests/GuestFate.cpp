#include "host/guests/GuestFate.h"

namespace host {

GuestFate fateOf(const GuestFacts& facts) {
  if (facts.isRemoved) return GuestFate::ends;
  switch (facts.row) {
    case RowWord::none:
      return facts.isGivenUp ? GuestFate::ends : GuestFate::unknown;
    case RowWord::unclear:
      return GuestFate::waits;
    case RowWord::on:
      return facts.canBeDriven ? GuestFate::takenUp : GuestFate::ends;
    case RowWord::off:
      break;
  }
  return GuestFate::ends;
}

}  // namespace host
