// Where a QEMU writes a picture of its guest's screen.
#pragma once

#include <cstdint>
#include <optional>

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

// Has nobody change what was drawn any more, by whatever descriptor he has: not QEMU, which may be
// the guest's, and not who was shown it before. Returns whether it is so.
bool isSealed(const rt::Descriptor& reading);

// The picture of a guest that stands still, for all who ask for it meanwhile: it does not change,
// and QEMU would keep each. Where `stillness` names the time, and is nothing for a guest that runs.
class StillPicture {
 public:
  // It was asked for and drawn in that time.
  void pictureIs(std::optional<uint64_t> stillness, const rt::Descriptor& reading);
  // What is of another time goes.
  void stillnessIs(std::optional<uint64_t> stillness);
  // Where it can be read from its begin on; none: there is no such picture.
  rt::Descriptor reader() const;

 private:
  std::optional<uint64_t> stillness_;
  rt::Descriptor reading_;
};

}  // namespace shim
