// The machine that configurations of tests are for.
#pragma once

#include "model/VmConfigCheck.h"

namespace model::fakes {

inline constexpr MachineLimits limits{.memory = 8192};

}  // namespace model::fakes
