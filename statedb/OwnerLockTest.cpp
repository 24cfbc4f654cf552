// One owner a run directory, and everybody can see whether there is one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>

#include "statedb/OwnerLock.h"

namespace statedb {
namespace {

using testing::HasSubstr;

class OwnerLockTest : public testing::Test {
 protected:
  OwnerLockTest() {
    char name[] = "/tmp/ownerLockXXXXXX";
    dir = mkdtemp(name);
  }
  ~OwnerLockTest() override { std::filesystem::remove_all(dir.str()); }
  std::string sentenceOf(const rt::String& file, Trouble trouble) {
    try {
      const OwnerLock second(file);
    } catch (const Error& error) {
      EXPECT_EQ(error.trouble(), trouble);
      return error.what();
    }
    return "it was locked";
  }

  rt::String dir;
};

TEST_F(OwnerLockTest, IsSeenFromOutsideForAsLongAsItIsHeld) {
  EXPECT_FALSE(ownerIsAlive(dir));
  std::optional<OwnerLock> lock(ownerLockFile(dir));
  EXPECT_TRUE(ownerIsAlive(dir));
  lock.reset();
  EXPECT_FALSE(ownerIsAlive(dir));
}

TEST_F(OwnerLockTest, IsHeldByOneAndNamesTheHolder) {
  const OwnerLock first(ownerLockFile(dir));
  EXPECT_THAT(sentenceOf(ownerLockFile(dir), Trouble::locked),
              HasSubstr("(process " + std::to_string(getpid()) + ")"));
}

TEST_F(OwnerLockTest, IsNotTakenAwayByALook) {
  const OwnerLock lock(ownerLockFile(dir));
  EXPECT_TRUE(ownerIsAlive(dir));
  EXPECT_TRUE(ownerIsAlive(dir));
}

TEST_F(OwnerLockTest, EndsWithItsProcessHoweverThatEnds) {
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t child = fork();
  if (child == 0) {
    const OwnerLock lock(ownerLockFile(dir));
    (void)!write(ready[1], "x", 1);
    pause();
  }
  char byte = 0;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  EXPECT_TRUE(ownerIsAlive(dir));
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  EXPECT_FALSE(ownerIsAlive(dir));
  EXPECT_EQ(sentenceOf(ownerLockFile(dir), Trouble::locked), "it was locked");
  close(ready[0]);
  close(ready[1]);
}

TEST_F(OwnerLockTest, SaysThatItsDirectoryIsMissing) {
  EXPECT_THAT(sentenceOf(dir + "/none/lock", Trouble::missing),
              HasSubstr(dir.str() + "/none/lock: its directory is missing"));
  EXPECT_FALSE(ownerIsAlive(dir + "/none"));
}

}  // namespace
}  // namespace statedb
