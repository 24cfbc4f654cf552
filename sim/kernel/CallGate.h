// The gate that each call of a program passes on its way into the model.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "sim/base/Digest.h"
#include "sim/kernel/File.h"

namespace sim {

class Process;

// One call.
struct CallNote {
  const char* name;
  uint64_t arguments;  // a digest of what of them is no address
  long first;          // the first of these that is a number, as a descriptor
  long second;         // the next, as what is to be done to it
};

// Counts calls, gives others their turn, and lets faults happen.
class CallGate {
 public:
  // Returns 0, or the -errno that it is to fail with. May not return: the process may end here.
  Result enter(const CallNote& note);
  // Tells its result on; signals that have come are taken here.
  Result leave(const CallNote& note, Result result);

  // Of all calls so far.
  uint64_t count() const { return count_; }
  uint64_t digest() const { return digest_.value(); }

  // Asked at each call; returns -errno to have it fail.
  std::function<Result(Process&, const CallNote&)> fault;
  // Told of each call, at its end.
  std::vector<std::function<void(const Process&, const CallNote&, Result)>> done;
  // A process that makes so many calls without ever sleeping is broken.
  uint64_t mostWithoutSleep = 200'000;

 private:
  uint64_t count_ = 0;
  Digest digest_;
};

}  // namespace sim
