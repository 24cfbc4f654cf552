#include "shim/keep/Picture.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

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
  const rt::Descriptor memory(memfd_create("picture", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  // Or whoever has it open for reading could open it anew for writing.
  (void)fchmod(memory.number(), S_IRUSR | S_IWUSR);
  // Each of its own: what is open for both can be read by who is to write, and has one place.
  Picture picture{openedAnew(memory, O_WRONLY), openedAnew(memory, O_RDONLY)};
  if (!memory || !picture.writing || !picture.reading)
    throw control::RequestError("screenshot: there is no memory for a picture");
  return picture;
}

bool isSealed(const rt::Descriptor& reading) {
  const rt::Descriptor writing = openedAnew(reading, O_WRONLY);
  return fcntl(writing.number(), F_ADD_SEALS,
               F_SEAL_WRITE | F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL) == 0;
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
