// What a user is called.
#pragma once

#include <cstdint>
#include <string_view>

#include "runtime/base/String.h"

namespace model {

// By lines as those of /etc/passwd: "op1"; "uid 4711" for one that has no line.
rt::String userNameIn(std::string_view lines, uint32_t uid);

// By this machine's file. Of users that are known to another service only, that is not asked, for
// it may never answer.
rt::String userName(uint32_t uid);

}  // namespace model
