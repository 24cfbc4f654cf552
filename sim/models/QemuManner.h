// How one QEMU, and the guest in it, behave.
#pragma once

#include <optional>

#include "sim/base/Time.h"

namespace sim {

// Of a good one, unless it is said otherwise.
struct QemuManner {
  // What it says when it ends at once.
  static constexpr const char* refusal = "it will not start today";
  // Its start.
  std::optional<int> endsAtOnceWith;                       // that status, and a word why
  Duration untilGreeting = std::chrono::milliseconds(20);  // never: none comes

  // Its answers.
  enum class Answers {
    good,
    none,
    halves,     // cut in two, a while apart
    errors,     // each is refused
    othersIds,  // with an id that nobody asked with
    rubbish,    // no JSON
  };
  Answers answers = Answers::good;
  Duration untilAnswer = std::chrono::microseconds(300);
  // So many good ones come first.
  unsigned goodAnswers = 0;
  bool storms = false;  // each answer comes with a hundred events

  // Its end.
  bool heedsTerm = true;
  bool heedsQuit = true;
  Duration untilEnd =
      std::chrono::milliseconds(2);  // from the monitor's closing to the process' end

  // The guest.
  std::optional<Duration> untilPowerOff = std::chrono::seconds(1);  // from its button; none: never
  std::optional<Duration> powersOffAfter;                           // it was let run, by itself
  bool floods = false;                                              // its console
};

}  // namespace sim
