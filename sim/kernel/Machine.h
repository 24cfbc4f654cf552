// A machine: what the programs of a world run on.
#pragma once

#include <ctime>

#include "sim/base/Choices.h"
#include "sim/kernel/CallGate.h"
#include "sim/kernel/FileSystem.h"
#include "sim/kernel/Network.h"
#include "sim/kernel/Processes.h"
#include "sim/kernel/Scheduler.h"
#include "sim/kernel/Verdict.h"

namespace sim {

// The time of day, which may be set.
class WallClock {
 public:
  timespec timeOfDay() const;
  void jump(Duration by) { offset_ += by; }

 private:
  // An evening in November 2023.
  Duration offset_ = std::chrono::seconds(1'700'000'000);
};

// One at a time. Its parts are public: the calls of programs and who makes the world work on them.
class Machine {
 public:
  explicit Machine(uint64_t seed);
  Machine(const Machine&) = delete;
  ~Machine();

  Time now() const { return scheduler.now(); }

  // What was wrong first counts. Returns, unless a program runs: that goes no further.
  void fail(const std::string& clause, const std::string& about, const std::string& text);

  Choices choices;
  Scheduler scheduler;
  WallClock clock;
  FileSystem files;
  Network network;
  Processes processes;
  CallGate gate;
  Verdict verdict;
};

// The one there is.
Machine& machine();
// Whether a program of it runs: then its calls are the model's.
bool inWorld();

}  // namespace sim
