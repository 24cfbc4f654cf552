// How a guest's process ended that left no word.
#pragma once

#include <cstdint>

#include "runtime/base/String.h"

namespace host {

struct Ending {
  int32_t signal = 0;  // that ended it; 0: none did
  int32_t status = 0;  // of its exit
};

// Pure: what is wrong with that, and what is to be done; empty when nothing is.
rt::String textOf(const Ending& ending, const rt::String& vm);

}  // namespace host
