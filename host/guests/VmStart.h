// A VM that is about to be started.
#pragma once

#include <cstdint>
#include <functional>

#include "runtime/base/String.h"

namespace host {

// What the start's processes are told of it.
struct VmStart {
  rt::String vm;
  uint64_t row = 0;  // the sequence in the configuration's store at which its row was made
};

// Prepares a start. Throws when it cannot be: it is tried again then.
using PrepareStart = std::function<void(const VmStart&)>;

}  // namespace host
