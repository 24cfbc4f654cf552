#include "shim/keep/Picture.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <string>

#include "shim/decide/ControlText.h"

namespace shim {

namespace {

rt::Descriptor openedAnew(const rt::Descriptor& memory, int how) {
  const std::string path = "/proc/self/fd/" + std::to_string(memory.number());
  return rt::Descriptor(open(path.c_str(), how | O_CLOEXEC));
}

}  // namespace

Picture makePicture() {
  const rt::Descriptor memory(memfd_create("picture", MFD_CLOEXEC));
  // Each of its own: what is open for both can be read by who is to write, and has one place.
  Picture picture{openedAnew(memory, O_WRONLY), openedAnew(memory, O_RDONLY)};
  if (!memory || !picture.writing || !picture.reading)
    throw control::RequestError("screenshot: there is no memory for a picture");
  return picture;
}

void StillPicture::pictureIs(std::optional<uint64_t> stillness, const rt::Descriptor& reading) {
  stillness_ = stillness;
  reading_ = stillness ? openedAnew(reading, O_RDONLY) : rt::Descriptor();
}

void StillPicture::stillnessIs(std::optional<uint64_t> stillness) {
  if (stillness_ != stillness) reading_.reset();
}

rt::Descriptor StillPicture::reader() const {
  return reading_ ? openedAnew(reading_, O_RDONLY) : rt::Descriptor();
}

}  // namespace shim
