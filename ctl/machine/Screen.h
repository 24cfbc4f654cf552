// A terminal's whole screen, on which a picture is drawn again and again. A test looks at it
// instead.
#pragma once

#include <cstddef>
#include <cstdint>

#include "runtime/base/Seconds.h"
#include "runtime/base/String.h"

namespace ctl {

class Screen {
 public:
  // What was heard: nothing until the time was over, a key, or that it is to end.
  struct Word {
    enum class Kind : uint8_t { none, key, end };
    Kind kind = Kind::none;
    char key = 0;
  };
  struct Size {
    size_t columns = 80;
    size_t lines = 24;
  };

  Screen() = default;
  Screen(const Screen&) = delete;
  virtual ~Screen() = default;

  // As it is now: a person may change it.
  virtual Size size() const = 0;
  // Shows these lines instead of what was shown. False: they could not be written.
  virtual bool show(const rt::String& lines) = 0;
  // What is heard first within the time.
  virtual Word listen(rt::Seconds time) = 0;
};

}  // namespace ctl
