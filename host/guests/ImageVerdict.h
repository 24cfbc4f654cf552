// Whether a VM may be started with its disk image.
#pragma once

#include <cstdint>

#include "runtime/base/String.h"

namespace host {

struct ImageQuestion {
  rt::String vm;
  rt::String path;
  // The start takes up a guest that runs, so nothing is opened for it.
  bool takesUp = false;
};

struct ImageVerdict {
  enum class Kind : uint8_t {
    awaited,  // somebody looks at the image; the VM is told when there is an answer
    refused,
    fit,
  };

  Kind kind = Kind::fit;
  rt::String problem{};  // why it is refused
  rt::String note{};     // what is worth telling of one that is fit; mostly empty
  rt::String format{};   // what one that is fit is opened as; empty: it is not known
};

}  // namespace host
