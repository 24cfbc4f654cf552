// vmctl as a function: from its arguments to its exit.
#pragma once

#include <span>

#include "ctl/line/Exit.h"
#include "ctl/machine/World.h"

namespace ctl {

// `arguments`: without the program's name. Throws nothing but std::bad_alloc; what goes wrong is
// told on `world.err`.
Exit run(std::span<const rt::String> arguments, World& world);

}  // namespace ctl
