// "Did you mean": the name that somebody probably wanted to write.
#pragma once

#include <optional>
#include <span>
#include <string_view>

#include "runtime/base/String.h"

namespace rt {

// The one of `names` that `text` is nearest to, the first of several; nothing when none is near.
// Letters that are missing, added, wrong or swapped count one each, case does not count; at most a
// third of the letters may be wrong, and always one. Where none is so near, the first that begins
// with `text`, if that has three letters.
std::optional<std::string_view> nearName(std::string_view text,
                                         std::span<const std::string_view> names);

// "; did you mean 'NAME'?", or nothing when there is no such name.
String didYouMean(std::string_view text, std::span<const std::string_view> names);

}  // namespace rt
