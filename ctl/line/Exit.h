// How vmctl ends.
#pragma once

#include <cstdint>
#include <vector>

#include "runtime/base/Exception.h"

namespace ctl {

// Scripts rely on these numbers.
enum class Exit : uint8_t {
  done = 0,
  failed = 1,
  usage = 2,
  noSuch = 3,       // VM, card or interface
  conflict = 4,     // what is so forbids it
  invalid = 5,      // a value is refused; nothing was written
  unreachable = 6,  // the state database cannot be used
  timedOut = 7,
  differs = 8,  // with --exit-code: something would be changed
};

// Ends a verb, or one of its names. Each sentence becomes a line on standard error.
class Refusal final : public rt::Exception {
 public:
  Refusal(Exit exit, const rt::String& sentence) : Refusal(exit, std::vector{sentence}) {}
  // At least one sentence.
  Refusal(Exit exit, std::vector<rt::String> sentences)
      : Exception(sentences.front()), exit_(exit), sentences_(std::move(sentences)) {}

  Exit exit() const { return exit_; }
  const std::vector<rt::String>& sentences() const { return sentences_; }

 private:
  Exit exit_;
  std::vector<rt::String> sentences_;
};

}  // namespace ctl
