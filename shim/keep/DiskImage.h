// A guest's disk image, opened once and for all.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "guest/ImageHeader.h"
#include "runtime/base/Descriptor.h"
#include "shim/decide/Arguments.h"

namespace shim {

// QEMU opens no file of the guest's by its path: it gets these descriptors, of the file that was
// looked at here. Whatever takes the path's place later, or stands in a header, is nothing to it.
struct DiskImage {
  guest::ImageFormat format = guest::ImageFormat::raw;
  bool isBlockDevice = false;
  // For writing, but of a CD, and for reading: QEMU asks for both. As long as one of them is open
  // somewhere, so are QEMU's locks of the image held, and a block device is the guest's alone.
  rt::Descriptors descriptors;
};

// `format`: what the daemon says that the image is; nothing: it says nothing, as an older one, or
// nobody does. Then it is raw, and refused when it begins as qcow2: its guest may have written
// that.
//
// Throws Failure when there is no such file, it is no file for a disk, the machine uses it, or it
// needs a second file.
DiskImage openDiskImage(const Drive& drive, std::optional<guest::ImageFormat> format);

// As QEMU finds them, from `firstDescriptor` on, each in a set of its own.
std::map<std::string, DriveFile> driveFiles(const std::vector<Drive>& drives,
                                            const std::vector<DiskImage>& images,
                                            int firstDescriptor);

}  // namespace shim
