#include "runtime/base/Format.h"

#include <cstdarg>
#include <cstdio>

#include "runtime/base/Check.h"

namespace rt {

String format(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  va_list again;
  va_copy(again, args);
  char small[256];
  const int length = std::vsnprintf(small, sizeof small, fmt, args);
  va_end(args);
  check(length >= 0, "format: the format is invalid");
  const auto size = static_cast<size_t>(length);
  std::string text;
  if (size < sizeof small) {
    text.assign(small, size);
  } else {
    text.resize(size);
    std::vsnprintf(text.data(), size + 1, fmt, again);
  }
  va_end(again);
  return text;
}

}  // namespace rt
