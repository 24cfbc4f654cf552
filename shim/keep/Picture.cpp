#include "shim/keep/Picture.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <string>

#include "shim/decide/ControlText.h"

namespace shim {

Picture makePicture() {
  const rt::Descriptor memory(memfd_create("picture", MFD_CLOEXEC));
  // Each of its own: what is open for both can be read by who is to write, and has one place.
  const std::string path = "/proc/self/fd/" + std::to_string(memory.number());
  Picture picture{rt::Descriptor(open(path.c_str(), O_WRONLY | O_CLOEXEC)),
                  rt::Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC))};
  if (!memory || !picture.writing || !picture.reading)
    throw control::RequestError("screenshot: there is no memory for a picture");
  return picture;
}

}  // namespace shim
