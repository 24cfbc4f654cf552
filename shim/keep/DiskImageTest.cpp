// A disk image, opened once.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "runtime/base/fakes/TestFolder.h"
#include "shim/base/Failure.h"
#include "shim/keep/DiskImage.h"

namespace shim {
namespace {

using guest::ImageFormat;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::string_view plainQcow2("QFI\xfb\0\0\0\3", 8);
constexpr std::string_view backedQcow2("QFI\xfb\0\0\0\3\0\0\0\0\0\0\1\0", 16);

class DiskImageOpened : public testing::Test {
 protected:
  Drive disk(std::string_view head = "") const { return {made(head)}; }
  Drive cd() const { return {made(""), true}; }
  std::string made(std::string_view head) const {
    std::string bytes(40000, '\0');
    bytes.replace(0, head.size(), head);
    std::ofstream(folder / "image", std::ios::binary) << bytes;
    return folder / "image";
  }
  static std::string refusal(const Drive& drive, std::optional<ImageFormat> format = {}) {
    try {
      openDiskImage(drive, format);
    } catch (const Failure& failure) {
      return failure.what();
    }
    return {};
  }
  static int modeOf(const rt::Descriptor& descriptor) {
    return fcntl(descriptor.number(), F_GETFL) & (O_ACCMODE | O_NONBLOCK);
  }

  const rt::fakes::TestFolder folder;
};

TEST_F(DiskImageOpened, OfADiskIsTwoDescriptorsOneToWriteAndOneToRead) {
  const DiskImage image = openDiskImage(disk(), ImageFormat::raw);
  EXPECT_EQ(image.format, ImageFormat::raw);
  EXPECT_FALSE(image.isBlockDevice);
  ASSERT_EQ(image.descriptors.size(), 2U);
  EXPECT_EQ(modeOf(image.descriptors[0]), O_RDWR);
  EXPECT_EQ(modeOf(image.descriptors[1]), O_RDONLY);
  for (const rt::Descriptor& each : image.descriptors)
    EXPECT_EQ(fcntl(each.number(), F_GETFD), FD_CLOEXEC);
}

TEST_F(DiskImageOpened, OfACdIsOneToRead) {
  const DiskImage image = openDiskImage(cd(), ImageFormat::raw);
  ASSERT_EQ(image.descriptors.size(), 1U);
  EXPECT_EQ(modeOf(image.descriptors[0]), O_RDONLY);
}

TEST_F(DiskImageOpened, LeavesNoOtherDescriptor) {
  const Drive drive = disk();
  const int before = dup(0);
  close(before);
  openDiskImage(drive, ImageFormat::raw);
  const int after = dup(0);
  close(after);
  EXPECT_EQ(after, before);
}

TEST_F(DiskImageOpened, ThatWasNamedRawIsRawWhateverItsGuestWroteIntoIt) {
  EXPECT_EQ(openDiskImage(disk(backedQcow2), ImageFormat::raw).format, ImageFormat::raw);
}

TEST_F(DiskImageOpened, ThatWasNamedQcow2NeedsNoSecondFile) {
  EXPECT_EQ(openDiskImage(disk(plainQcow2), ImageFormat::qcow2).format, ImageFormat::qcow2);
  EXPECT_EQ(refusal(disk(backedQcow2), ImageFormat::qcow2),
            "the disk image '" + (folder / "image") +
                "' is refused: it must need no second file; this qcow2 has a backing file: flatten "
                "it (qemu-img convert)");
  EXPECT_THAT(refusal(disk(), ImageFormat::qcow2), HasSubstr("must be qcow2"));
}

TEST_F(DiskImageOpened, ThatOthersMayWriteIsNoQcow2) {
  const Drive drive = disk(plainQcow2);
  for (const mode_t mode : {0620U, 0602U}) {
    ASSERT_EQ(chmod(drive.path.c_str(), mode), 0);
    EXPECT_THAT(refusal(drive, ImageFormat::qcow2), HasSubstr("nobody but root may write"));
    EXPECT_EQ(openDiskImage(drive, ImageFormat::raw).format, ImageFormat::raw);
  }
  ASSERT_EQ(chmod(drive.path.c_str(), 0644), 0);
  EXPECT_EQ(openDiskImage(drive, ImageFormat::qcow2).format, ImageFormat::qcow2);
  if (geteuid() != 0) return;
  ASSERT_EQ(chown(drive.path.c_str(), 1234, 0), 0);
  EXPECT_THAT(refusal(drive, ImageFormat::qcow2), HasSubstr("nobody but root may write"));
}

TEST_F(DiskImageOpened, OfWhichNothingIsSaidIsRawAndNeverGuessed) {
  EXPECT_EQ(openDiskImage(disk(), std::nullopt).format, ImageFormat::raw);
  EXPECT_THAT(refusal(disk(plainQcow2)), HasSubstr("VMAGENT_IMAGE_FORMAT must say"));
}

TEST_F(DiskImageOpened, ThatIsNoFileIsNotOpened) {
  ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
  for (const std::string& each : {folder / "fifo", folder.path(), std::string("/dev/null")})
    EXPECT_EQ(refusal({each}), "the disk image '" + each +
                                   "' is refused: it must be a regular file or a block device");
}

TEST_F(DiskImageOpened, ThatIsMissingIsToldWithTheReason) {
  EXPECT_EQ(refusal({"/nowhere/disk.img"}),
            "the disk image '/nowhere/disk.img' cannot be opened: No such file or directory");
}

TEST_F(DiskImageOpened, IsThatFileWhateverTakesItsPlace) {
  const DiskImage image = openDiskImage(disk("first"), ImageFormat::raw);
  std::filesystem::remove(folder / "image");
  made("other");
  char head[5];
  ASSERT_EQ(pread(image.descriptors[1].number(), head, sizeof head, 0), 5);
  EXPECT_EQ(std::string_view(head, sizeof head), "first");
}

TEST_F(DiskImageOpened, IsKnownToQemuByASetOfItsOwn) {
  const std::vector<Drive> drives{{"/a"}, {"/b", true}};
  std::vector<DiskImage> images(2);
  images[0].descriptors.resize(2);
  images[1] = {ImageFormat::qcow2, true, {}};
  images[1].descriptors.resize(1);
  const auto files = driveFiles(drives, images, 6);
  EXPECT_EQ(files.at("/a").set, 1);
  EXPECT_THAT(files.at("/a").descriptors, ElementsAre(6, 7));
  EXPECT_EQ(files.at("/a").format, "raw");
  EXPECT_FALSE(files.at("/a").isBlockDevice);
  EXPECT_EQ(files.at("/b").set, 2);
  EXPECT_THAT(files.at("/b").descriptors, ElementsAre(8));
  EXPECT_EQ(files.at("/b").format, "qcow2");
  EXPECT_TRUE(files.at("/b").isBlockDevice);
}

}  // namespace
}  // namespace shim
