#include "runtime/base/Check.h"

#include <cstdio>
#include <cstdlib>

namespace rt {

void checkFailed(const char* text, const char* file, int line) {
  std::fprintf(stderr, "%s:%d: assertion failed: %s\n", file, line, text);
  std::abort();
}

}  // namespace rt
