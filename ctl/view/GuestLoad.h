// What guests take of the machine: counters of a moment, and rates between two. Pure.
#pragma once

#include <vector>

#include "ctl/machine/GuestCounters.h"
#include "model/Processors.h"
#include "runtime/base/Seconds.h"

namespace ctl {

// A guest that has a process.
struct GuestFacts {
  rt::String name;
  rt::String actual;
  rt::String severity;
  int32_t pid = 0;         // QEMU's; 0: unknown
  uint64_t startedAt = 0;  // seconds since 1970; 0: unknown
  uint64_t memory = 0;     // mebibytes that it is configured with; 0: unknown
  model::Processors cpuMax;
  struct Card {
    rt::String key;
    rt::String interface;
    rt::String address;
  };
  std::vector<Card> cards;
  GuestCounters counters;  // of each card, in the same order
};

struct Sample {
  uint64_t at = 0;    // milliseconds since 1970
  rt::Seconds clock;  // of one that only goes forward
  std::vector<GuestFacts> guests;
};

// A second. Nothing: there is no sample before, or it does not go on from there.
using Rate = std::optional<double>;

struct CardRates {
  Rate received;  // bytes
  Rate sent;
  Rate drops;  // of both directions
};

struct GuestRates {
  Rate cpu;        // of one processor: 1 is all of it
  Rate throttled;  // the part of the time that it was held back
  Rate read;       // bytes
  Rate written;
  std::vector<CardRates> cards;  // as those of the guest

  // Of all cards that have one; nothing when none has.
  Rate received() const;
  Rate sent() const;
  Rate drops() const;
};

// Of a counter. One that goes back has begun anew, and time that does not go forward has no rate.
Rate rateOf(std::optional<uint64_t> before, std::optional<uint64_t> now, rt::Seconds time);

// Of each guest of `now`, in its order; of one that was not there before, nothing. `before`: null
// for none.
std::vector<GuestRates> ratesOf(const Sample* before, const Sample& now);

}  // namespace ctl
