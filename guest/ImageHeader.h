// What the first bytes of a disk image say of it.
//
// All of it is pure. Daemon, command line and shim ask here, so that all three take an image for
// the same. Those bytes are the guest's own: it may have written whatever suits it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace guest {

// What QEMU may be told that an image is.
enum class ImageFormat : uint8_t { raw, qcow2 };

// So many of an image's first bytes are looked at; zeros stand behind the end of a shorter one.
constexpr size_t imageHeadSize = 104;

// "raw" or "qcow2", and back; nothing for any other text.
std::string_view textOf(ImageFormat format);
std::optional<ImageFormat> imageFormatFrom(std::string_view text);

// The name of the format that such a head belongs to: "raw" or "qcow2", or one that is not taken,
// such as "VMDK". What is of no format that is known here is raw.
std::string_view formatOfHead(std::string_view head);

// Why QEMU must not open a head as qcow2, beginning with "must"; nothing when it may. A header of
// qcow2 can name other files of the machine, which the guest would have for its disk then.
std::optional<std::string> qcow2Right(std::string_view head);

// Who may write a file.
struct FileOwner {
  unsigned user = 0;
  unsigned mode = 0;  // its permission bits, among others
  bool isBlockDevice = false;
};
// Whether somebody may but root and `self`, our own user.
bool othersMayWrite(const FileOwner& file, unsigned self);
// What is said of such a qcow2. QEMU reads its header once more, after the last look at it, and
// that may name any file by then.
constexpr std::string_view qcow2OwnerRight =
    "must be a file that nobody but root may write, to be qcow2: 'chown root:root' and "
    "'chmod go-w', or convert it to raw (qemu-img convert)";

}  // namespace guest
