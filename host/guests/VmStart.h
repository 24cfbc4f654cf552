// A VM that is about to be started.
#pragma once

#include <functional>

#include "statedb/Record.h"

namespace host {

// What the start's processes are told of it.
struct VmStart {
  rt::String vm;
  statedb::Origin row;       // where its row was made
  rt::String imageFormat{};  // what its disk image is opened as; empty: it is not known
};

// Prepares a start. Throws when it cannot be: it is tried again then.
using PrepareStart = std::function<void(const VmStart&)>;

}  // namespace host
