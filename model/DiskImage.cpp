#include "model/DiskImage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "runtime/base/Descriptor.h"
#include "runtime/base/Text.h"

namespace model {

namespace {

// Byte 1 of the volume descriptor in sector 16 of a CD.
constexpr off_t cdMagicAt = 32769;
constexpr std::string_view cdMagic = "CD001";

// Another who looks at a device holds it for a moment, too.
constexpr int claims = 4;
constexpr useconds_t claimPause = 20'000;  // microseconds

std::string_view headOf(const ImageFacts& facts) { return {facts.head.data(), facts.head.size()}; }

using Right = std::optional<rt::String>;

Right accessRight(const ImageFacts& facts) {
  if (facts.error == ETIMEDOUT)
    return "must answer within " + rt::toText(static_cast<int>(imagePatience.value())) +
           " s: its file system does not";
  if (facts.error != 0)
    return "must be a file that can be read: " + std::generic_category().message(facts.error);
  if (facts.kind == ImageFacts::Kind::other) return "must be a regular file or a block device";
  if (facts.size < smallestImage)
    return "must have at least " + rt::toText(smallestImage) + " bytes; it has " +
           rt::toText(facts.size);
  return std::nullopt;
}

std::optional<rt::Problem> problem(const rt::String& path, const Right& right) {
  return right ? std::optional(rt::Problem{"diskImage", path, *right}) : std::nullopt;
}

// A block device is claimed, as who mounts it does; -1 with EBUSY when somebody has.
int openToRead(const rt::String& path, ImageFacts::Kind kind) {
  constexpr int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  if (kind == ImageFacts::Kind::regular) return open(path.charPtr(), flags);
  int fd = -1;
  for (int i = 0; i < claims; ++i) {
    if (i > 0) usleep(claimPause);
    fd = open(path.charPtr(), flags | O_EXCL);
    if (fd >= 0 || errno != EBUSY) break;
  }
  return fd;
}

// Reads the facts of an open file; an errno when that fails.
int readFacts(int fd, ImageFacts& facts) {
  const off_t size = lseek(fd, 0, SEEK_END);  // stat() knows no block device's
  if (size < 0) return errno;
  facts.size = static_cast<uint64_t>(size);
  if (pread(fd, facts.head.data(), facts.head.size(), 0) < 0) return errno;
  char magic[cdMagic.size()];
  const ssize_t count = pread(fd, magic, sizeof magic, cdMagicAt);
  if (count < 0) return errno;
  facts.isCd = std::string_view(magic, static_cast<size_t>(count)) == cdMagic;
  return 0;
}

}  // namespace

ImageFacts unreadable(int error) {
  ImageFacts facts;
  facts.error = error;
  return facts;
}

ImageFacts imageFacts(const rt::String& path) {
  // Looked at before it is opened: to open a FIFO or a watchdog device would do something.
  struct stat status {};
  if (stat(path.charPtr(), &status) != 0) return unreadable(errno);
  ImageFacts facts;
  facts.othersMayWrite =
      guest::othersMayWrite({status.st_uid, status.st_mode, S_ISBLK(status.st_mode)}, geteuid());
  if (S_ISREG(status.st_mode)) {
    facts.kind = ImageFacts::Kind::regular;
    facts.file = {status.st_dev, status.st_ino};
  } else if (S_ISBLK(status.st_mode)) {
    facts.kind = ImageFacts::Kind::blockDevice;
    facts.file = {status.st_rdev, 0};
  } else {
    return facts;
  }
  rt::Descriptor fd(openToRead(path, facts.kind));
  if (!fd && errno == EBUSY) {
    facts.isInUse = true;
    fd.reset(open(path.charPtr(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  }
  if (!fd) return unreadable(errno);
  const int error = readFacts(fd.number(), facts);
  return error == 0 ? facts : unreadable(error);
}

std::optional<rt::Problem> accessProblem(const rt::String& path, const ImageFacts& facts) {
  return problem(path, accessRight(facts));
}

std::optional<rt::Problem> imageProblem(const rt::String& path, const ImageFacts& facts,
                                        guest::ImageFormat format) {
  if (auto found = accessProblem(path, facts)) return found;
  if (format == guest::ImageFormat::raw) return std::nullopt;
  if (const auto right = guest::qcow2Right(headOf(facts))) return problem(path, Right(*right));
  if (facts.othersMayWrite) return problem(path, rt::String(guest::qcow2OwnerRight));
  return std::nullopt;
}

std::optional<rt::Problem> imageProblem(const rt::String& path, const ImageFacts& facts) {
  if (auto found = accessProblem(path, facts)) return found;
  const std::string_view name = guest::formatOfHead(headOf(facts));
  if (const auto format = guest::imageFormatFrom(name)) return imageProblem(path, facts, *format);
  return problem(path, "must be raw, ISO or qcow2; this is " + rt::String(name) +
                           ": convert it (qemu-img convert)");
}

std::optional<guest::ImageFormat> detectedFormat(const ImageFacts& facts) {
  if (accessRight(facts)) return std::nullopt;
  return guest::imageFormatFrom(guest::formatOfHead(headOf(facts)));
}

rt::String otherFormat(const ImageFacts& facts, guest::ImageFormat format) {
  const std::string_view name = guest::formatOfHead(headOf(facts));
  return name == guest::textOf(format) ? rt::String() : rt::String(name);
}

}  // namespace model
