#include "edge/DiskImage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "runtime/base/Text.h"

namespace edge {

namespace {

// What stands where in the header of a qcow2 image; its numbers have the highest byte first.
constexpr size_t versionAt = 4;         // 4 bytes
constexpr size_t backingFileAt = 8;     // 8 bytes: where its name stands
constexpr size_t encryptionAt = 32;     // 4 bytes: the method
constexpr size_t incompatibleAt = 72;   // 8 bytes, from version 3 on
constexpr uint64_t dirtyBit = 1U << 0;  // QEMU mends it by itself
constexpr uint64_t corruptBit = 1U << 1;
constexpr uint64_t externalDataBit = 1U << 2;
constexpr uint64_t compressionBit = 1U << 3;
constexpr uint64_t extendedL2Bit = 1U << 4;

constexpr std::string_view qcowMagic("QFI\xfb");

// Formats of other hypervisors, which would be taken for raw disks and not boot.
struct Format {
  std::string_view name;
  size_t at;
  std::string_view magic;
};
constexpr Format otherFormats[] = {{"VMDK", 0, "KDMV"},      {"VMDK", 0, "# Disk Descriptor"},
                                   {"VHDX", 0, "vhdxfile"},  {"VHD", 0, "conectix"},
                                   {"QED", 0, {"QED\0", 4}}, {"VDI", 64, "\x7f\x10\xda\xbe"}};

std::string_view headOf(const ImageFacts& facts) {
  return {reinterpret_cast<const char*>(facts.head.data()), facts.head.size()};
}

uint64_t number(const ImageFacts& facts, size_t at, size_t bytes) {
  uint64_t value = 0;
  for (size_t i = at; i < at + bytes; ++i) value = value << 8U | facts.head[i];
  return value;
}

using Right = std::optional<rt::String>;

Right qcow2Right(const ImageFacts& facts) {
  const uint64_t version = number(facts, versionAt, 4);
  if (version != 2 && version != 3)
    return "must be qcow2 of version 2 or 3; this is version " + rt::toText(version);
  if (number(facts, backingFileAt, 8) != 0)
    return "must need no second file; this qcow2 has a backing file: flatten it (qemu-img convert)";
  if (number(facts, encryptionAt, 4) != 0) return "must not be encrypted; this qcow2 is";
  if (version == 2) return std::nullopt;
  const uint64_t features = number(facts, incompatibleAt, 8);
  if (features & externalDataBit)
    return "must need no second file; this qcow2 has an external data file";
  if (features & corruptBit)
    return "must be sound; this qcow2 is marked corrupt: mend it (qemu-img check -r all)";
  if (features & ~(dirtyBit | corruptBit | externalDataBit | compressionBit | extendedL2Bit))
    return "must be plain qcow2; this one has features that are not known here";
  return std::nullopt;
}

Right formatRight(const ImageFacts& facts) {
  const std::string_view head = headOf(facts);
  if (head.substr(0, qcowMagic.size()) == qcowMagic) return qcow2Right(facts);
  for (const Format& format : otherFormats)
    if (head.substr(format.at, format.magic.size()) == format.magic)
      return "must be raw, ISO or qcow2; this is " + rt::String(format.name) +
             ": convert it (qemu-img convert)";
  return std::nullopt;
}

Right imageRight(const ImageFacts& facts) {
  if (facts.error != 0)
    return "must be a file that can be read: " + std::generic_category().message(facts.error);
  if (facts.kind == ImageFacts::Kind::other) return "must be a regular file or a block device";
  if (facts.size < smallestImage)
    return "must have at least " + rt::toText(smallestImage) + " bytes; it has " +
           rt::toText(facts.size);
  return formatRight(facts);
}

ImageFacts failed(int error) {
  ImageFacts facts;
  facts.error = error;
  return facts;
}

// Reads the facts of an open file; an errno when that fails.
int readFacts(int fd, ImageFacts& facts) {
  const off_t size = lseek(fd, 0, SEEK_END);  // stat() knows no block device's
  if (size < 0) return errno;
  facts.size = static_cast<uint64_t>(size);
  return pread(fd, facts.head.data(), facts.head.size(), 0) < 0 ? errno : 0;
}

}  // namespace

ImageFacts imageFacts(const rt::String& path) {
  // Looked at before it is opened: to open a FIFO or a watchdog device would do something.
  struct stat status {};
  if (stat(path.charPtr(), &status) != 0) return failed(errno);
  ImageFacts facts;
  if (S_ISREG(status.st_mode))
    facts.kind = ImageFacts::Kind::regular;
  else if (S_ISBLK(status.st_mode))
    facts.kind = ImageFacts::Kind::blockDevice;
  else
    return facts;
  const int fd = open(path.charPtr(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) return failed(errno);
  const int error = readFacts(fd, facts);
  close(fd);
  return error == 0 ? facts : failed(error);
}

std::optional<rt::Problem> imageProblem(const rt::String& path, const ImageFacts& facts) {
  const Right right = imageRight(facts);
  return right ? std::optional(rt::Problem{"diskImage", path, *right}) : std::nullopt;
}

}  // namespace edge
