#include "edge/DiskImage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "runtime/base/Text.h"

namespace edge {

namespace {

std::string_view headOf(const ImageFacts& facts) { return {facts.head.data(), facts.head.size()}; }

using Right = std::optional<rt::String>;

Right formatRight(std::string_view head) {
  const std::string_view format = guest::formatOfHead(head);
  if (format == "qcow2") {
    const auto right = guest::qcow2Right(head);
    return right ? Right(*right) : std::nullopt;
  }
  if (format == "raw") return std::nullopt;
  return "must be raw, ISO or qcow2; this is " + rt::String(format) +
         ": convert it (qemu-img convert)";
}

Right imageRight(const ImageFacts& facts) {
  if (facts.error == ETIMEDOUT)
    return "must answer within " + rt::toText(static_cast<int>(imagePatience.value())) +
           " s: its file system does not";
  if (facts.error != 0)
    return "must be a file that can be read: " + std::generic_category().message(facts.error);
  if (facts.kind == ImageFacts::Kind::other) return "must be a regular file or a block device";
  if (facts.size < smallestImage)
    return "must have at least " + rt::toText(smallestImage) + " bytes; it has " +
           rt::toText(facts.size);
  return formatRight(headOf(facts));
}

// Reads the facts of an open file; an errno when that fails.
int readFacts(int fd, ImageFacts& facts) {
  const off_t size = lseek(fd, 0, SEEK_END);  // stat() knows no block device's
  if (size < 0) return errno;
  facts.size = static_cast<uint64_t>(size);
  return pread(fd, facts.head.data(), facts.head.size(), 0) < 0 ? errno : 0;
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
  if (S_ISREG(status.st_mode))
    facts.kind = ImageFacts::Kind::regular;
  else if (S_ISBLK(status.st_mode))
    facts.kind = ImageFacts::Kind::blockDevice;
  else
    return facts;
  const int fd = open(path.charPtr(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) return unreadable(errno);
  const int error = readFacts(fd, facts);
  close(fd);
  return error == 0 ? facts : unreadable(error);
}

std::optional<rt::Problem> imageProblem(const rt::String& path, const ImageFacts& facts) {
  const Right right = imageRight(facts);
  return right ? std::optional(rt::Problem{"diskImage", path, *right}) : std::nullopt;
}

}  // namespace edge
