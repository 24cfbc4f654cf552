// One question of HTTP, and its answer. Pure.
#pragma once

#include <functional>
#include <string_view>

#include "runtime/base/String.h"

namespace ctl {

// Answers "GET /metrics" and HEAD with what `body` makes, and all others with what is wrong. What
// `body` throws is for the caller.
rt::String httpAnswer(std::string_view head, const std::function<rt::String()>& body);
// When there is nothing to answer with.
rt::String httpFailure(const rt::String& sentence);

}  // namespace ctl
