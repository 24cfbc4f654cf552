// Text of others in lines for people. Needs nothing of the runtime.
//
// A terminal does what control characters tell it, and a mark of direction has a line read
// otherwise than it is: a name of others may hold either, or bytes that are no text at all.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace rt {

// How many bytes at the start of `text` are one UTF-8 character; 0 when they are none.
size_t characterLength(std::string_view text);

// How many bytes at the end of `text` may be the begin of a UTF-8 character that goes on.
size_t unfinishedLength(std::string_view text);

// UTF-8 that is shown as it is: bytes that are no UTF-8 and control characters are written \xNN,
// marks of direction and of lines' ends \uNNNN. Of the control characters of ASCII, those in `kept`
// stay.
std::string visibleText(std::string_view text, std::string_view kept = {});

}  // namespace rt
