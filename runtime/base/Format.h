// Text from a printf-style format.
#pragma once

#include "runtime/base/String.h"

namespace rt {

[[gnu::format(printf, 1, 2)]] String format(const char* fmt, ...);

}  // namespace rt
