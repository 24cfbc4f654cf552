// What the kernel writes into the files of control groups, read.
#pragma once

#include <cstdint>
#include <string_view>

namespace guest {

// Whether a list of words, such as a group's controllers, has that one.
bool hasWord(std::string_view list, std::string_view word);

// The number behind a word, as in "populated 1"; 0 when it is not there.
uint64_t numberOf(std::string_view text, std::string_view word);

}  // namespace guest
