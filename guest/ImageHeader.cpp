#include "guest/ImageHeader.h"

namespace guest {

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

// How images begin that are not raw. Those of other hypervisors would be taken for raw disks, and
// not boot.
struct Format {
  std::string_view name;
  size_t at;
  std::string_view magic;
};
constexpr Format formats[] = {{"qcow2", 0, "QFI\xfb"},          {"VMDK", 0, "KDMV"},
                              {"VMDK", 0, "# Disk Descriptor"}, {"VHDX", 0, "vhdxfile"},
                              {"VHD", 0, "conectix"},           {"QED", 0, {"QED\0", 4}},
                              {"VDI", 64, "\x7f\x10\xda\xbe"}};

bool begins(std::string_view head, const Format& format) {
  return head.size() >= format.at && head.substr(format.at).starts_with(format.magic);
}

// What is beyond the head's end is zero.
uint64_t number(std::string_view head, size_t at, size_t bytes) {
  uint64_t value = 0;
  for (size_t i = at; i < at + bytes; ++i)
    value = value << 8U | (i < head.size() ? static_cast<uint8_t>(head[i]) : 0U);
  return value;
}

}  // namespace

std::string_view textOf(ImageFormat format) {
  return format == ImageFormat::qcow2 ? "qcow2" : "raw";
}

std::optional<ImageFormat> imageFormatFrom(std::string_view text) {
  if (text == "raw") return ImageFormat::raw;
  if (text == "qcow2") return ImageFormat::qcow2;
  return std::nullopt;
}

std::string_view formatOfHead(std::string_view head) {
  for (const Format& format : formats)
    if (begins(head, format)) return format.name;
  return "raw";
}

std::optional<std::string> qcow2Right(std::string_view head) {
  if (formatOfHead(head) != "qcow2") return "must be qcow2, and does not begin as qcow2 does";
  const uint64_t version = number(head, versionAt, 4);
  if (version != 2 && version != 3)
    return "must be qcow2 of version 2 or 3; this is version " + std::to_string(version);
  if (number(head, backingFileAt, 8) != 0)
    return "must need no second file; this qcow2 has a backing file: flatten it (qemu-img convert)";
  if (number(head, encryptionAt, 4) != 0) return "must not be encrypted; this qcow2 is";
  if (version == 2) return std::nullopt;
  const uint64_t features = number(head, incompatibleAt, 8);
  if (features & externalDataBit)
    return "must need no second file; this qcow2 has an external data file";
  if (features & corruptBit)
    return "must be sound; this qcow2 is marked corrupt: mend it (qemu-img check -r all)";
  if (features & ~(dirtyBit | corruptBit | externalDataBit | compressionBit | extendedL2Bit))
    return "must be plain qcow2; this one has features that are not known here";
  return std::nullopt;
}

bool othersMayWrite(const FileOwner& file, unsigned self) {
  constexpr unsigned groupsWrite = 0020;
  constexpr unsigned anybodysWrite = 0002;
  if (file.user != 0 && file.user != self) return true;
  // Who is of a block device's group may write all disks of the machine anyway.
  return (file.mode & (file.isBlockDevice ? anybodysWrite : anybodysWrite | groupsWrite)) != 0;
}

}  // namespace guest
