// A guest that runs though the configuration does not have its VM.
#pragma once

#include <optional>

#include "statedb/Record.h"

namespace host {

// One that nobody is known to have removed.
struct UnknownGuest {
  int32_t pid = 0;
  // Of this very guest, and of none before or after it: what an operator says who gives it up.
  rt::String name;
  rt::String why;  // it is not known to be removed
};

// Why a guest that was told of that row is not known to be removed, by a store of that history.
rt::String doubtOf(const std::optional<statedb::Origin>& row, const rt::String& history);
// What an operator reads of it, with both ways out.
rt::String problemOf(const rt::String& vm, const UnknownGuest& guest);

}  // namespace host
