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

// Whoever knows all VMs' disk images. Asked by the VMs' keepers.
class ImageJudge {
 public:
  virtual ~ImageJudge() = default;
  // Judges the image of a start just before it.
  virtual ImageVerdict judge(const ImageQuestion& question) = 0;
  // Returns what the VM's image of that path is opened as from the next start on; empty: nobody has
  // said.
  virtual rt::String format(const rt::String& vm, const rt::String& path) const = 0;
  // Takes note that the VM is to be started with no image any more, and has no process.
  virtual void release(const rt::String& vm) = 0;
};

}  // namespace host
