// One story, played from its beginning to its end.
#pragma once

#include <string>

#include "sim/story/Stage.h"

namespace sim {

struct Outcome {
  Verdict verdict;
  uint64_t digest = 0;  // of all calls of all programs, and what they returned
  uint64_t calls = 0;
  Duration passed{};  // of the machine's time
  Duration work{};    // of the processor's, which differs from run to run
  long memory = 0;    // KiB at most, of the process that has played it; likewise
  std::string diary;
  std::string records;  // logs, and what QEMUs were asked; of one that is shown

  bool failed() const { return verdict.failed(); }
};

// As the lines of a file, and back.
std::string toText(const Outcome& outcome);
Outcome outcomeFromText(const std::string& text);

// `stage` is where its beginning has it.
Outcome play(Stage& stage, const Story& story);

}  // namespace sim
