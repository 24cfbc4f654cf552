#include <gmock/gmock.h>

#include "guest/ImageHeader.h"

namespace guest {
namespace {

using testing::Eq;
using testing::HasSubstr;
using testing::Optional;

std::string at(size_t offset, std::string_view bytes) {
  std::string head(imageHeadSize, '\0');
  return head.replace(offset, bytes.size(), bytes);
}

std::string qcow2(char version) {
  std::string head = at(0, "QFI\xfb");
  head[7] = version;
  return head;
}

std::string with(std::string head, size_t offset, char byte) {
  head[offset] = byte;
  return head;
}

TEST(ImageFormat, IsItsNameAndBack) {
  for (const ImageFormat format : {ImageFormat::raw, ImageFormat::qcow2})
    EXPECT_THAT(imageFormatFrom(textOf(format)), Optional(format));
  for (const char* const text : {"", "RAW", "qcow", "vmdk", "raw "})
    EXPECT_EQ(imageFormatFrom(text), std::nullopt) << text;
}

TEST(ImageHeader, TellsItsFormat) {
  EXPECT_EQ(formatOfHead(qcow2(3)), "qcow2");
  EXPECT_EQ(formatOfHead(at(0, "KDMV")), "VMDK");
  EXPECT_EQ(formatOfHead(at(64, "\x7f\x10\xda\xbe")), "VDI");
  EXPECT_EQ(formatOfHead(at(0, "\xeb\x63\x90\x10")), "raw");
  EXPECT_EQ(formatOfHead(at(1, "KDMV")), "raw") << "it must stand in its place";
}

TEST(ImageHeader, MayBeShort) {
  EXPECT_EQ(formatOfHead(""), "raw");
  EXPECT_EQ(formatOfHead("QFI"), "raw");
  EXPECT_EQ(formatOfHead("QFI\xfb"), "qcow2");
  EXPECT_THAT(qcow2Right("QFI\xfb"), Optional(HasSubstr("this is version 0")));
}

TEST(Qcow2Head, OfAnotherFormatIsNone) {
  EXPECT_THAT(qcow2Right(at(0, "KDMV")),
              Optional(Eq("must be qcow2, and does not begin as qcow2 does")));
  EXPECT_THAT(qcow2Right(std::string(imageHeadSize, '\0')), Optional(HasSubstr("must be qcow2")));
}

TEST(Qcow2Head, MayBePlainOfVersionTwoOrThree) {
  EXPECT_THAT(qcow2Right(qcow2(1)), Optional(HasSubstr("this is version 1")));
  EXPECT_EQ(qcow2Right(qcow2(2)), std::nullopt);
  EXPECT_EQ(qcow2Right(qcow2(3)), std::nullopt);
  EXPECT_THAT(qcow2Right(qcow2(4)), Optional(HasSubstr("this is version 4")));
  EXPECT_THAT(qcow2Right(with(qcow2(3), 4, 1)), Optional(HasSubstr("version 16777219")));
}

TEST(Qcow2Head, NamesNoSecondFile) {
  for (const char version : {'\2', '\3'})
    for (const size_t offset : {8U, 15U})
      EXPECT_THAT(qcow2Right(with(qcow2(version), offset, 1)),
                  Optional(HasSubstr("has a backing file")))
          << offset;
  EXPECT_EQ(qcow2Right(with(qcow2(3), 16, 1)), std::nullopt) << "the length of no name";
  EXPECT_THAT(qcow2Right(with(qcow2(3), 79, 0b100)), Optional(HasSubstr("external data file")));
  EXPECT_EQ(qcow2Right(with(qcow2(2), 79, 0b100)), std::nullopt) << "version 2 has no such bit";
}

TEST(Qcow2Head, IsNotEncrypted) {
  for (const char version : {'\2', '\3'})
    for (const char method : {'\1', '\2'})
      EXPECT_THAT(qcow2Right(with(qcow2(version), 35, method)),
                  Optional(HasSubstr("must not be encrypted")));
}

TEST(Qcow2Head, HasOnlyFeaturesThatAreKnown) {
  EXPECT_EQ(qcow2Right(with(qcow2(3), 79, 0b00001)), std::nullopt) << "not closed: QEMU mends it";
  EXPECT_THAT(qcow2Right(with(qcow2(3), 79, 0b00010)), Optional(HasSubstr("marked corrupt")));
  EXPECT_EQ(qcow2Right(with(qcow2(3), 79, 0b01000)), std::nullopt) << "another compression";
  EXPECT_EQ(qcow2Right(with(qcow2(3), 79, 0b10000)), std::nullopt) << "extended entries";
  EXPECT_THAT(qcow2Right(with(qcow2(3), 79, 0b100000)), Optional(HasSubstr("not known here")));
  EXPECT_THAT(qcow2Right(with(qcow2(3), 72, '\x80')), Optional(HasSubstr("not known here")));
}

}  // namespace
}  // namespace guest
