#include "shim/keep/DiskImage.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>

#include "guest/Variables.h"
#include "shim/base/Failure.h"

namespace shim {

namespace {

// The daemon, or a vmctl, that looks at a device holds it for a moment, too.
constexpr int claims = 10;
constexpr useconds_t claimPause = 20'000;  // microseconds

Failure refused(const Drive& drive, const std::string& right) {
  return Failure("the disk image '" + drive.path + "' is refused: it " + right);
}

Failure cannotBeOpened(const Drive& drive, const char* how) {
  const bool isDenied = errno == EACCES;
  Failure why = failureOf("the disk image '" + drive.path + "' cannot be opened" + how);
  if (!isDenied) return why;
  return Failure(std::string(why.what()) +
                 " (to root: if it is another machine's file, that must let root have it, by the "
                 "file's mode or as no_root_squash)");
}

// Another descriptor of the same file, whatever stands at its path by now.
rt::Descriptor reopened(const rt::Descriptor& file, int flags) {
  const std::string path = "/proc/self/fd/" + std::to_string(file.number());
  rt::Descriptor opened(open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (opened) (void)fcntl(opened.number(), F_SETFL, 0);  // that was for the opening alone
  return opened;
}

// A block device is claimed, as who mounts it does: nobody mounts what a guest writes.
rt::Descriptor reopenedToWrite(const rt::Descriptor& file, const DiskImage& image,
                               const Drive& drive) {
  rt::Descriptor opened;
  for (int i = 0; i < claims; ++i) {
    if (i > 0) usleep(claimPause);
    opened = reopened(file, image.isBlockDevice ? O_RDWR | O_EXCL : O_RDWR);
    if (opened || errno != EBUSY) break;
  }
  if (!opened && errno == EBUSY)
    throw refused(drive,
                  "must not be in use: the machine has it mounted, or made it part of something "
                  "else, or another guest has it");
  if (!opened) throw cannotBeOpened(drive, " for writing");
  return opened;
}

guest::ImageFormat formatOf(const rt::Descriptor& file, const Drive& drive,
                            std::optional<guest::ImageFormat> told) {
  std::array<char, guest::imageHeadSize> bytes{};
  if (pread(file.number(), bytes.data(), bytes.size(), 0) < 0) throw cannotBeOpened(drive, "");
  const std::string_view head(bytes.data(), bytes.size());
  if (!told && guest::formatOfHead(head) == "qcow2")
    throw refused(drive, "begins as qcow2 does, which its guest may have written: " +
                             std::string(guest::variable::imageFormat) +
                             " must say whether it is raw or qcow2");
  const guest::ImageFormat format = told.value_or(guest::ImageFormat::raw);
  if (format == guest::ImageFormat::qcow2)
    if (const auto right = guest::qcow2Right(head)) throw refused(drive, *right);
  return format;
}

}  // namespace

DiskImage openDiskImage(const Drive& drive, std::optional<guest::ImageFormat> format) {
  // Looked at before it is opened: to open a FIFO or a watchdog device would do something.
  const rt::Descriptor file(open(drive.path.c_str(), O_PATH | O_CLOEXEC));
  struct stat facts {};
  if (!file || fstat(file.number(), &facts) != 0) throw cannotBeOpened(drive, "");
  DiskImage image;
  image.isBlockDevice = S_ISBLK(facts.st_mode);
  if (!image.isBlockDevice && !S_ISREG(facts.st_mode))
    throw refused(drive, "must be a regular file or a block device");
  if (!drive.isCd) image.descriptors.push_back(reopenedToWrite(file, image, drive));
  rt::Descriptor toRead = reopened(file, O_RDONLY);
  if (!toRead) throw cannotBeOpened(drive, "");
  image.format = formatOf(toRead, drive, format);
  if (image.format == guest::ImageFormat::qcow2 &&
      guest::othersMayWrite({facts.st_uid, facts.st_mode, image.isBlockDevice}, geteuid()))
    throw refused(drive, std::string(guest::qcow2OwnerRight));
  image.descriptors.push_back(std::move(toRead));
  return image;
}

std::map<std::string, DriveFile> driveFiles(const std::vector<Drive>& drives,
                                            const std::vector<DiskImage>& images,
                                            int firstDescriptor) {
  std::map<std::string, DriveFile> files;
  for (size_t i = 0; i < drives.size(); ++i) {
    DriveFile& file = files[drives[i].path];
    file = {static_cast<int>(i) + 1,
            {},
            std::string(guest::textOf(images[i].format)),
            images[i].isBlockDevice};
    for (size_t count = images[i].descriptors.size(); count > 0; --count)
      file.descriptors.push_back(firstDescriptor++);
  }
  return files;
}

}  // namespace shim
