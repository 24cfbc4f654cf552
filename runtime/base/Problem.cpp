#include "runtime/base/Problem.h"

#include "runtime/base/Format.h"

namespace rt {

namespace {

constexpr size_t longestValue = 64;  // bytes; more of it would hide the rest of the line

String visible(std::string_view text) {
  String result;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f)
      result += format("\\x%02x", byte);
    else
      result += c;
  }
  return result;
}

// At most `longestValue` bytes of it, with "..." for the rest; no UTF-8 character is cut apart.
String shortened(std::string_view text) {
  if (text.size() <= longestValue) return text;
  size_t end = longestValue;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0U) == 0x80U) --end;
  return String(text.substr(0, end)) + "...";
}

}  // namespace

String Problem::text() const {
  return visible(shortened(field)) + ": '" + visible(shortened(value)) +
         "' is refused: " + visible(right);
}

}  // namespace rt
