// The head of a question of HTTP.
#pragma once

#include "runtime/base/Seconds.h"
#include "runtime/base/String.h"

namespace ctl {

// What comes until the head is whole, or too long, or nothing more comes within the time.
rt::String readHead(int descriptor, rt::Seconds time);

}  // namespace ctl
