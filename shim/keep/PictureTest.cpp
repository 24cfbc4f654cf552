#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "shim/keep/Picture.h"

namespace shim {
namespace {

void draw(const Picture& picture, const std::string& what) {
  ASSERT_EQ(write(picture.writing.number(), what.data(), what.size()),
            static_cast<ssize_t>(what.size()));
}

std::string readFrom(const rt::Descriptor& reading) {
  char bytes[64];
  const ssize_t count = read(reading.number(), bytes, sizeof bytes);
  return count < 0 ? "<error>" : std::string(bytes, static_cast<size_t>(count));
}

TEST(Picture, IsReadByTheOneAndWrittenByTheOther) {
  const Picture picture = makePicture();
  draw(picture, "PNG");
  EXPECT_EQ(readFrom(picture.reading), "PNG");
  EXPECT_LT(write(picture.reading.number(), "x", 1), 0);
  EXPECT_LT(read(picture.writing.number(), nullptr, 0), 0);
}

TEST(Picture, CanBeOpenedAnewByNobodyElse) {
  struct stat known {};
  ASSERT_EQ(fstat(makePicture().reading.number(), &known), 0);
  EXPECT_EQ(known.st_mode & (S_IRWXG | S_IRWXO), 0U);
}

TEST(Picture, ThatIsSealedIsChangedByNobody) {
  const Picture picture = makePicture();
  draw(picture, "PNG");
  EXPECT_TRUE(isSealed(picture.reading));
  EXPECT_LT(write(picture.writing.number(), "x", 1), 0);
  EXPECT_EQ(errno, EPERM);
  EXPECT_LT(ftruncate(picture.writing.number(), 0), 0);
  EXPECT_EQ(readFrom(picture.reading), "PNG");
}

TEST(Picture, ThatSomebodyCanStillChangeIsToldToBeUnsealed) {
  const Picture picture = makePicture();
  draw(picture, "PNG");
  const std::string path = "/proc/self/fd/" + std::to_string(picture.reading.number());
  const rt::Descriptor both(open(path.c_str(), O_RDWR | O_CLOEXEC));
  void* const shared = mmap(nullptr, 3, PROT_READ | PROT_WRITE, MAP_SHARED, both.number(), 0);
  ASSERT_NE(shared, MAP_FAILED);
  EXPECT_FALSE(isSealed(picture.reading));
  munmap(shared, 3);
  EXPECT_TRUE(isSealed(picture.reading));
}

TEST(StillPicture, IsReadByEachFromItsBeginInItsTimeOnly) {
  const Picture picture = makePicture();
  draw(picture, "PNG");
  StillPicture still;
  EXPECT_FALSE(still.reader());
  still.pictureIs(7, picture.reading);
  EXPECT_EQ(readFrom(still.reader()), "PNG");
  still.stillnessIs(7);
  EXPECT_EQ(readFrom(still.reader()), "PNG");
  still.stillnessIs(8);
  EXPECT_FALSE(still.reader());
}

TEST(StillPicture, OfAGuestThatRunsIsNone) {
  const Picture picture = makePicture();
  StillPicture still;
  still.pictureIs(std::nullopt, picture.reading);
  still.stillnessIs(std::nullopt);
  EXPECT_FALSE(still.reader());
}

}  // namespace
}  // namespace shim
