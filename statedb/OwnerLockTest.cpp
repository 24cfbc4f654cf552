// One owner a run directory, and everybody can see whether there is one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

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
  ~OwnerLockTest() override {
    end();
    std::filesystem::remove_all(dir.str());
  }
  std::string sentenceOf(const rt::String& file, Trouble trouble) {
    try {
      const OwnerLock second(file);
    } catch (const Error& error) {
      EXPECT_EQ(error.trouble(), trouble);
      return error.what();
    }
    return "it was locked";
  }
  // Another process that holds the lock, and its own child if asked for, until end().
  void start(bool withChild = false) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    owner = fork();
    if (owner == 0) {
      const OwnerLock lock(ownerLockFile(dir));
      if (withChild) child(ready[1]);
      (void)!write(ready[1], "x", 1);
      pause();
    }
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    close(ready[0]);
    close(ready[1]);
  }
  void end() {
    if (owner > 0) kill(owner, SIGKILL);
    if (owner > 0) waitpid(owner, nullptr, 0);
    owner = 0;
  }

  rt::String dir;
  pid_t owner = 0;

 private:
  // Ends by itself after a while.
  static void child(int ready) {
    if (fork() != 0) return;
    close(ready);
    alarm(5);
    while (true) pause();
  }
};

TEST_F(OwnerLockTest, IsSeenFromOutsideForAsLongAsItIsHeld) {
  EXPECT_FALSE(ownerIsAlive(dir));
  start();
  EXPECT_TRUE(ownerIsAlive(dir));
  EXPECT_TRUE(ownerIsAlive(dir)) << "a look takes nothing away";
  end();
  EXPECT_FALSE(ownerIsAlive(dir));
}

TEST_F(OwnerLockTest, IsHeldByOneAndNamesTheHolder) {
  start();
  EXPECT_THAT(sentenceOf(ownerLockFile(dir), Trouble::locked),
              HasSubstr("(process " + std::to_string(owner) + ")"));
}

TEST_F(OwnerLockTest, CanBeHadAtOnceWhenItsProcessWasKilled) {
  start();
  end();
  EXPECT_EQ(sentenceOf(ownerLockFile(dir), Trouble::locked), "it was locked");
}

TEST_F(OwnerLockTest, IsNotAChildsThatOutlivesItsProcess) {
  start(/*withChild=*/true);
  end();
  EXPECT_FALSE(ownerIsAlive(dir));
  EXPECT_EQ(sentenceOf(ownerLockFile(dir), Trouble::locked), "it was locked");
}

TEST_F(OwnerLockTest, SaysThatItsDirectoryIsMissing) {
  EXPECT_THAT(sentenceOf(dir + "/none/lock", Trouble::missing),
              HasSubstr(dir.str() + "/none/lock: its directory is missing"));
  EXPECT_FALSE(ownerIsAlive(dir + "/none"));
}

}  // namespace
}  // namespace statedb
