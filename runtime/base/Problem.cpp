#include "runtime/base/Problem.h"

#include "runtime/base/VisibleText.h"

namespace rt {

namespace {

constexpr size_t longestValue = 64;  // bytes; more of it would hide the rest of the line

String visible(std::string_view text) { return visibleText(text); }

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
