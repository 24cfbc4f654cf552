// Several files as one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "ctl/machine/Archive.h"
#include "ctl/machine/LinuxMachine.h"
#include "runtime/base/Exception.h"
#include "runtime/base/fakes/TestFolder.h"

namespace ctl {
namespace {

class Archive : public testing::Test {
 protected:
  rt::String listed() const { return LinuxMachine().run({"tar", "-tzf", place_}).output; }

  const rt::fakes::TestFolder folder_;
  const std::string place_ = folder_ / "all.tar.gz";
};

TEST_F(Archive, HasAllFilesInOneDirectoryAndIsItsOwnersAlone) {
  const std::string bytes("a\0b\n", 4);
  pack({{"one.txt", "first"}, {"-two", bytes}}, "all", {.path = place_});
  EXPECT_THAT(listed().str(), testing::HasSubstr("all/one.txt\n"));
  EXPECT_THAT(listed().str(), testing::HasSubstr("all/-two\n"));
  EXPECT_EQ(LinuxMachine().run({"tar", "-xzOf", place_, "all/-two"}).output, bytes);
  EXPECT_EQ(rt::fakes::modeOf(place_), 0600);
}

TEST_F(Archive, LeavesNothingBesideIt) {
  setenv("TMPDIR", folder_.path().c_str(), 1);
  pack({{"one", "first"}}, "all", {.path = place_});
  EXPECT_THROW(pack({{"one", "again"}}, "all", {.path = place_}), rt::Exception);
  unsetenv("TMPDIR");
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder_.path()))
    names.push_back(entry.path().filename().string());
  EXPECT_THAT(names, testing::ElementsAre("all.tar.gz"));
  EXPECT_EQ(LinuxMachine().run({"tar", "-xzOf", place_, "all/one"}).output, "first");
}

}  // namespace
}  // namespace ctl
