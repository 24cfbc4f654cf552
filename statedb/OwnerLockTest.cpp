// One owner a run directory, whatever others do to its lock.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "runtime/base/fakes/TestFolder.h"
#include "statedb/OwnerLock.h"

namespace statedb {
namespace {

using testing::HasSubstr;

class OwnerLockTest : public testing::Test {
 protected:
  ~OwnerLockTest() override { end(); }
  std::string sentenceOf(const rt::String& file, Trouble trouble) {
    try {
      const OwnerLock second(file);
    } catch (const Error& error) {
      EXPECT_EQ(error.trouble(), trouble);
      return error.what();
    }
    return "it was locked";
  }
  static mode_t modeOf(const rt::String& file) {
    struct stat facts {};
    EXPECT_EQ(lstat(file.charPtr(), &facts), 0) << file.str();
    return facts.st_mode & 07777U;
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

  const rt::fakes::TestFolder folder;
  const rt::String dir{folder.path()};
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

TEST_F(OwnerLockTest, IsHeldByOneAndNamesTheHolder) {
  start();
  EXPECT_THAT(sentenceOf(ownerLockFile(dir), Trouble::locked),
              HasSubstr("(process " + std::to_string(owner) + ")"));
}

TEST_F(OwnerLockTest, HoldsTheNumberOfItsProcessAndNothingOfTheOneBefore) {
  std::ofstream(ownerLockFile(dir).str()) << "12345678901234567890\n";
  const OwnerLock lock(ownerLockFile(dir));
  std::ifstream file(ownerLockFile(dir).str());
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), std::to_string(getpid()) + "\n");
}

TEST_F(OwnerLockTest, CanBeHadAtOnceWhenItsProcessWasKilled) {
  start();
  end();
  EXPECT_EQ(sentenceOf(ownerLockFile(dir), Trouble::locked), "it was locked");
}

TEST_F(OwnerLockTest, IsNotAChildsThatOutlivesItsProcess) {
  start(/*withChild=*/true);
  end();
  EXPECT_EQ(sentenceOf(ownerLockFile(dir), Trouble::locked), "it was locked");
}

TEST_F(OwnerLockTest, CanBeOpenedByNobodyElseWhateverItsModeWas) {
  const mode_t before = umask(0);
  { const OwnerLock lock(ownerLockFile(dir)); }
  umask(before);
  EXPECT_EQ(modeOf(ownerLockFile(dir)), 0600U);
  ASSERT_EQ(chmod(ownerLockFile(dir).charPtr(), 0644), 0);
  const OwnerLock lock(ownerLockFile(dir));
  EXPECT_EQ(modeOf(ownerLockFile(dir)), 0600U);
}

TEST_F(OwnerLockTest, IsNeverInAFileThatALinkLeadsTo) {
  const rt::String precious = dir + "/precious";
  std::ofstream(precious.str()) << "all my work";
  ASSERT_EQ(chmod(precious.charPtr(), 0644), 0);
  const auto expectUntouched = [&] {
    EXPECT_EQ(modeOf(precious), 0644U);
    std::ifstream file(precious.str());
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "all my work");
  };
  for (const bool isSymbolic : {true, false}) {
    std::filesystem::remove(ownerLockFile(dir).str());
    if (isSymbolic)
      std::filesystem::create_symlink(precious.str(), ownerLockFile(dir).str());
    else
      std::filesystem::create_hard_link(precious.str(), ownerLockFile(dir).str());
    start();
    EXPECT_THAT(sentenceOf(ownerLockFile(dir), Trouble::locked), HasSubstr("another daemon"));
    end();
    expectUntouched();
  }
}

TEST_F(OwnerLockTest, IsNeverInWhatAnotherHasPutThere) {
  ASSERT_EQ(mkfifo(ownerLockFile(dir).charPtr(), 0660), 0);
  start();
  EXPECT_THAT(sentenceOf(ownerLockFile(dir), Trouble::locked), HasSubstr("another daemon"));
  end();
  constexpr uid_t somebody = 65534;
  const uid_t user = geteuid() == 0 ? somebody : geteuid();
  ASSERT_EQ(chown(ownerLockFile(dir).charPtr(), user, static_cast<gid_t>(-1)), 0);
  const OwnerLock lock(ownerLockFile(dir));
  struct stat facts {};
  ASSERT_EQ(stat(ownerLockFile(dir).charPtr(), &facts), 0);
  EXPECT_TRUE(S_ISREG(facts.st_mode));
  EXPECT_EQ(facts.st_uid, geteuid());
}

TEST_F(OwnerLockTest, SaysThatItsDirectoryIsMissing) {
  EXPECT_THAT(sentenceOf(dir + "/none/lock", Trouble::missing),
              HasSubstr(dir.str() + "/none/lock: its directory is missing"));
}

}  // namespace
}  // namespace statedb
