// Where a QEMU writes a picture of its guest's screen.
#pragma once

#include "runtime/base/Descriptor.h"

namespace shim {

// Memory that has no name anywhere, is there as long as it is open, and cannot keep QEMU waiting.
// QEMU gets the one, and can read nothing by it; who asked for the picture the other.
struct Picture {
  rt::Descriptor writing;
  rt::Descriptor reading;
};

// Throws control::RequestError when there can be none.
Picture makePicture();

}  // namespace shim
