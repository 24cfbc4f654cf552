#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "model/DiskImage.h"
#include "runtime/base/Check.h"
#include "runtime/base/fakes/TestFolder.h"

namespace model {
namespace {

using testing::HasSubstr;

ImageFacts file(uint64_t size = smallestImage) {
  ImageFacts facts;
  facts.kind = ImageFacts::Kind::regular;
  facts.size = size;
  return facts;
}

void write(ImageFacts& facts, size_t at, std::string_view bytes) {
  std::copy(bytes.begin(), bytes.end(), facts.head.begin() + static_cast<std::ptrdiff_t>(at));
}

ImageFacts qcow2(int version) {
  ImageFacts facts = file(196'616);
  write(facts, 0, "QFI\xfb");
  facts.head[7] = static_cast<char>(version);
  return facts;
}

ImageFacts with(ImageFacts facts, size_t at, int byte) {
  facts.head[at] = static_cast<char>(byte);
  return facts;
}

// What is wrong; empty when nothing is.
std::string wrong(const ImageFacts& facts) {
  const auto problem = imageProblem("/images/web.iso", facts);
  return problem ? problem->text().str() : "";
}

// What may be an image.

TEST(DiskImage, OfEnoughBytesWillDo) {
  EXPECT_EQ(wrong(file(smallestImage)), "");
  EXPECT_EQ(
      wrong(file(smallestImage - 1)),
      "diskImage: '/images/web.iso' is refused: must have at least 32774 bytes; it has 32773");
  EXPECT_THAT(wrong(file(0)), HasSubstr("it has 0"));
}

TEST(DiskImage, MayBeABlockDevice) {
  ImageFacts facts = file();
  facts.kind = ImageFacts::Kind::blockDevice;
  EXPECT_EQ(wrong(facts), "");
  facts.size = smallestImage - 1;
  EXPECT_THAT(wrong(facts), HasSubstr("at least 32774 bytes"));
}

TEST(DiskImage, IsNothingElse) {
  ImageFacts facts = file();
  facts.kind = ImageFacts::Kind::other;
  EXPECT_THAT(wrong(facts), HasSubstr("must be a regular file or a block device"));
}

TEST(DiskImage, ThatIsMissingIsToldWithItsCause) {
  ImageFacts facts;
  facts.error = ENOENT;
  EXPECT_EQ(wrong(facts),
            "diskImage: '/images/web.iso' is refused: must be a file that can be read: No such "
            "file or directory");
}

TEST(DiskImage, OnAFileSystemThatDoesNotAnswerIsToldSo) {
  EXPECT_EQ(wrong(unreadable(ETIMEDOUT)),
            "diskImage: '/images/web.iso' is refused: must answer within 5 s: its file system does "
            "not");
}

TEST(DiskImage, MayBePlainQcow2OfVersionTwoOrThree) {
  EXPECT_THAT(wrong(qcow2(1)), HasSubstr("this is version 1"));
  EXPECT_EQ(wrong(qcow2(2)), "");
  EXPECT_EQ(wrong(qcow2(3)), "");
  EXPECT_THAT(wrong(qcow2(4)), HasSubstr("this is version 4"));
  EXPECT_THAT(wrong(with(qcow2(3), 4, 1)), HasSubstr("this is version 16777219"));
}

TEST(DiskImage, HasNoBackingFile) {
  for (const size_t at : {8U, 15U})
    for (const int version : {2, 3})
      EXPECT_THAT(wrong(with(qcow2(version), at, 1)), HasSubstr("has a backing file")) << at;
  EXPECT_EQ(wrong(with(qcow2(3), 16, 1)), "") << "the length of no name tells nothing";
}

TEST(DiskImage, IsNotEncrypted) {
  for (const int method : {1, 2})
    for (const int version : {2, 3})
      EXPECT_THAT(wrong(with(qcow2(version), 35, method)), HasSubstr("must not be encrypted"));
}

TEST(DiskImage, HasNoExternalDataFileAndNothingUnknown) {
  EXPECT_EQ(wrong(with(qcow2(3), 79, 0b00001)), "") << "not closed: QEMU mends it";
  EXPECT_THAT(wrong(with(qcow2(3), 79, 0b00010)), HasSubstr("marked corrupt"));
  EXPECT_THAT(wrong(with(qcow2(3), 79, 0b00100)), HasSubstr("external data file"));
  EXPECT_EQ(wrong(with(qcow2(3), 79, 0b01000)), "") << "compressed by another method";
  EXPECT_EQ(wrong(with(qcow2(3), 79, 0b10000)), "") << "extended entries";
  EXPECT_THAT(wrong(with(qcow2(3), 79, 0b100000)), HasSubstr("not known here"));
  EXPECT_THAT(wrong(with(qcow2(3), 72, 0x80)), HasSubstr("not known here"));
  EXPECT_EQ(wrong(with(qcow2(2), 79, 0xff)), "") << "version 2 has other things there";
}

TEST(DiskImage, IsOfNoOtherFormat) {
  const auto starting = [](size_t at, std::string_view magic) {
    ImageFacts facts = file();
    write(facts, at, magic);
    return wrong(facts);
  };
  EXPECT_THAT(starting(0, "KDMV"), HasSubstr("this is VMDK"));
  EXPECT_THAT(starting(0, "# Disk DescriptorFile"), HasSubstr("this is VMDK"));
  EXPECT_THAT(starting(0, "vhdxfile"), HasSubstr("this is VHDX"));
  EXPECT_THAT(starting(0, "conectix"), HasSubstr("this is VHD:"));
  EXPECT_THAT(starting(0, std::string_view("QED\0", 4)), HasSubstr("this is QED"));
  EXPECT_THAT(starting(64, "\x7f\x10\xda\xbe"), HasSubstr("this is VDI"));
  EXPECT_EQ(starting(0, "QFI"), "");
  EXPECT_EQ(starting(1, "KDMV"), "") << "anything else is a raw disk";
}

// What is opened as the format that it has by word.

TEST(DiskImage, OpenedAsRawMayBeginAsAnything) {
  for (const ImageFacts& facts : {with(qcow2(3), 15, 1), qcow2(1), file()})
    EXPECT_EQ(imageProblem("/i", facts, guest::ImageFormat::raw), std::nullopt);
}

// Its header is read once more when QEMU opens it.
TEST(DiskImage, ThatOthersMayWriteMayBeRawAndNotQcow2) {
  ImageFacts facts = qcow2(3);
  facts.othersMayWrite = true;
  EXPECT_THAT(wrong(facts), HasSubstr("must be a file that nobody but root may write"));
  EXPECT_EQ(imageProblem("/a", facts, guest::ImageFormat::raw), std::nullopt);
}

TEST(DiskImage, OpenedAsQcow2BeginsAsQcow2AndNeedsNoSecondFile) {
  EXPECT_EQ(imageProblem("/i", qcow2(3), guest::ImageFormat::qcow2), std::nullopt);
  EXPECT_EQ(imageProblem("/i", file(), guest::ImageFormat::qcow2)->right,
            "must be qcow2, and does not begin as qcow2 does");
  EXPECT_THAT(imageProblem("/i", with(qcow2(3), 15, 1), guest::ImageFormat::qcow2)->right.str(),
              HasSubstr("has a backing file"));
}

TEST(DiskImage, OfWhateverFormatMustBeReadableFirst) {
  for (const auto format : {guest::ImageFormat::raw, guest::ImageFormat::qcow2})
    EXPECT_THAT(imageProblem("/i", unreadable(EACCES), format)->right.str(),
                HasSubstr("Permission denied"));
}

TEST(DiskImage, IsDetectedByItsFirstBytes) {
  EXPECT_EQ(detectedFormat(qcow2(2)), guest::ImageFormat::qcow2);
  EXPECT_EQ(detectedFormat(file()), guest::ImageFormat::raw);
  EXPECT_EQ(detectedFormat(unreadable(ENOENT)), std::nullopt);
  ImageFacts vmdk = file();
  write(vmdk, 0, "KDMV");
  EXPECT_EQ(detectedFormat(vmdk), std::nullopt);
}

TEST(DiskImage, MayBeginAsAnotherFormatThanItHas) {
  EXPECT_EQ(otherFormat(file(), guest::ImageFormat::raw), "");
  EXPECT_EQ(otherFormat(qcow2(3), guest::ImageFormat::qcow2), "");
  EXPECT_EQ(otherFormat(qcow2(3), guest::ImageFormat::raw), "qcow2");
  ImageFacts vmdk = file();
  write(vmdk, 0, "KDMV");
  EXPECT_EQ(otherFormat(vmdk, guest::ImageFormat::raw), "VMDK");
}

// What is seen of files.

class DiskImageFacts : public testing::Test {
 protected:
  rt::String path(const char* name) const { return rt::String(folder_ / name); }
  rt::String fileOf(std::string_view bytes) const {
    std::ofstream(path("image").str(), std::ios::binary) << bytes;
    return path("image");
  }

  const rt::fakes::TestFolder folder_;
};

TEST_F(DiskImageFacts, AreTheSizeAndTheFirstBytesOfAFile) {
  std::string bytes(smallestImage, 'z');
  bytes[0] = 'a';
  bytes[103] = 'b';
  const ImageFacts facts = imageFacts(fileOf(bytes));
  EXPECT_EQ(facts.error, 0);
  EXPECT_EQ(facts.kind, ImageFacts::Kind::regular);
  EXPECT_EQ(facts.size, smallestImage);
  EXPECT_EQ(facts.head[0], 'a');
  EXPECT_EQ(facts.head[103], 'b');
}

TEST_F(DiskImageFacts, OfAShortFileAreItsBytesAndZeros) {
  const ImageFacts facts = imageFacts(fileOf("QFI"));
  EXPECT_EQ(facts.error, 0);
  EXPECT_EQ(facts.size, 3U);
  EXPECT_EQ(facts.head[2], 'I');
  EXPECT_EQ(facts.head[3], 0);
  EXPECT_EQ(imageFacts(fileOf("")).size, 0U);
}

TEST_F(DiskImageFacts, OfWhatIsNotThereAreTheReason) {
  EXPECT_EQ(imageFacts(path("none")).error, ENOENT);
  EXPECT_EQ(imageFacts(fileOf("x") + "/y").error, ENOTDIR);
  EXPECT_EQ(imageFacts("").error, ENOENT);
}

TEST_F(DiskImageFacts, OfALinkAreThoseOfItsFile) {
  std::filesystem::create_symlink(fileOf("abc").str(), path("link").str());
  EXPECT_EQ(imageFacts(path("link")).size, 3U);
}

TEST_F(DiskImageFacts, AreThoseOfOneFileWhateverItsName) {
  const rt::String image = fileOf("abc");
  std::filesystem::create_symlink(image.str(), path("link").str());
  std::filesystem::create_hard_link(image.str(), path("second").str());
  const FileId file = imageFacts(image).file;
  EXPECT_NE(file, FileId());
  EXPECT_EQ(imageFacts(path("link")).file, file);
  EXPECT_EQ(imageFacts(path("second")).file, file);
  std::ofstream(path("other").str()) << "abc";
  EXPECT_NE(imageFacts(path("other")).file, file);
}

TEST_F(DiskImageFacts, TellACdFromADisk) {
  std::string bytes(smallestImage, '\0');
  EXPECT_FALSE(imageFacts(fileOf(bytes)).isCd);
  bytes.replace(32769, 5, "CD001");
  EXPECT_TRUE(imageFacts(fileOf(bytes)).isCd);
  EXPECT_FALSE(imageFacts(fileOf(bytes.substr(0, 32773))).isCd);
}

TEST_F(DiskImageFacts, OfAFolderAFifoOrACharacterDeviceAreThatItIsNone) {
  ASSERT_EQ(mkfifo(path("fifo").charPtr(), 0600), 0);
  for (const rt::String& each :
       {rt::String(folder_.path()), path("fifo"), rt::String("/dev/zero")}) {
    const ImageFacts facts = imageFacts(each);
    EXPECT_EQ(facts.error, 0) << each;
    EXPECT_EQ(facts.kind, ImageFacts::Kind::other) << each;
  }
}

TEST_F(DiskImageFacts, LeaveNoDescriptorOpen) {
  const rt::String image = fileOf("abc");
  const int before = dup(0);
  close(before);
  imageFacts(image);
  const int after = dup(0);
  close(after);
  EXPECT_EQ(after, before);
}

}  // namespace
}  // namespace model
