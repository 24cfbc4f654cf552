// A file that is put into its place when it is whole.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "ctl/machine/NewFile.h"
#include "runtime/base/Exception.h"
#include "runtime/base/fakes/TestFolder.h"

namespace ctl {
namespace {

namespace fs = std::filesystem;

class NewFileIn : public testing::Test {
 protected:
  std::string content() const {
    std::ifstream file(place_);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder_.path()))
      names.push_back(entry.path().filename().string());
    return names;
  }
  void put(const char* text, FilePlace::Standing standing, unsigned mode = 0640) {
    NewFile file({.path = place_, .mode = mode, .standing = standing});
    file.write(text);
    file.put();
  }

  const rt::fakes::TestFolder folder_;
  const std::string place_ = folder_.path() + "/file";
};

TEST_F(NewFileIn, ItsPlaceHasItsBytesAndItsModeAndNothingElseIsLeft) {
  put("one", FilePlace::Standing::stays);
  EXPECT_EQ(content(), "one");
  struct stat facts {};
  ASSERT_EQ(stat(place_.c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 07777U, 0640U);
  EXPECT_THAT(names(), testing::ElementsAre("file"));
}

TEST_F(NewFileIn, TheWayOfAnotherLeavesThatOneAsItIs) {
  put("one", FilePlace::Standing::stays);
  EXPECT_THROW(put("two", FilePlace::Standing::stays), rt::Exception);
  EXPECT_EQ(content(), "one");
  EXPECT_THAT(names(), testing::ElementsAre("file"));
}

TEST_F(NewFileIn, ThePlaceOfAnotherReplacesItAtOnce) {
  put("one", FilePlace::Standing::stays);
  std::ifstream before(place_);
  put("two", FilePlace::Standing::isReplaced);
  EXPECT_EQ(content(), "two");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(before), {}), "one");
}

TEST_F(NewFileIn, HandsThatFailIsNotThere) {
  {
    NewFile file({.path = place_});
    file.write("half");
    EXPECT_FALSE(fs::exists(place_));
    EXPECT_EQ(names().at(0).substr(0, 6), ".file-");
  }
  EXPECT_THAT(names(), testing::IsEmpty());
}

TEST_F(NewFileIn, ADirectoryThatIsNotThereIsNamed) {
  try {
    const NewFile file({.path = folder_.path() + "/none/file"});
    FAIL();
  } catch (const rt::Exception& exception) {
    EXPECT_THAT(std::string(exception.what()), testing::HasSubstr("/none/file cannot be written"));
  }
}

}  // namespace
}  // namespace ctl
