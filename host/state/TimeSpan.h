// How long something takes, for people.
#pragma once

#include <cstdint>

#include "runtime/base/String.h"

namespace host {

// "3 s", "4 min 10 s", "2 h 5 min", "3 d 4 h". Less than a second is 0 s.
rt::String spanText(uint64_t milliseconds);

}  // namespace host
