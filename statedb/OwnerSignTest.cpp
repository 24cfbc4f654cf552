// Everybody of the group can see whether there is an owner.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "runtime/base/fakes/TestFolder.h"
#include "statedb/Error.h"
#include "statedb/OwnerSign.h"

namespace statedb {
namespace {

class OwnerSignTest : public testing::Test {
 protected:
  rt::String file() const { return dir + "/vmagentd.alive"; }
  // An owner that was killed.
  void leaveADeadOne() const {
    const pid_t owner = fork();
    if (owner == 0) {
      (void)!new OwnerSign(dir);
      kill(getpid(), SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(waitpid(owner, &status, 0), owner);
    ASSERT_TRUE(WIFSIGNALED(status));
    ASSERT_TRUE(std::filesystem::is_socket(file().str()));
  }

  const rt::fakes::TestFolder folder;
  const rt::String dir{folder.path()};
};

TEST_F(OwnerSignTest, IsSeenForAsLongAsItsOwnerLives) {
  EXPECT_FALSE(ownerIsAlive(dir));
  {
    const OwnerSign sign(dir);
    EXPECT_TRUE(ownerIsAlive(dir));
    EXPECT_TRUE(ownerIsAlive(dir)) << "a look takes nothing away";
  }
  EXPECT_FALSE(ownerIsAlive(dir));
  EXPECT_TRUE(std::filesystem::is_empty(dir.str()));
}

TEST_F(OwnerSignTest, OfAnOwnerThatWasKilledIsNoneAndMakesRoomForTheNext) {
  leaveADeadOne();
  EXPECT_FALSE(ownerIsAlive(dir));
  const OwnerSign sign(dir);
  EXPECT_TRUE(ownerIsAlive(dir));
}

TEST_F(OwnerSignTest, IsForTheGroupOfItsDirectoryWhateverTheUmask) {
  const gid_t group = geteuid() == 0 ? 54321 : getegid();
  ASSERT_EQ(chown(dir.charPtr(), static_cast<uid_t>(-1), group), 0);
  for (const mode_t mask : {0U, 0777U}) {
    const mode_t before = umask(mask);
    const OwnerSign sign(dir);
    EXPECT_EQ(umask(before), mask) << "the umask stays";
    struct stat facts {};
    ASSERT_EQ(stat(file().charPtr(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777U, 0660U);
    EXPECT_EQ(facts.st_gid, group);
  }
}

TEST_F(OwnerSignTest, KeepsNothingThatIsSentToIt) {
  const OwnerSign sign(dir);
  const int client = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, file().charPtr());
  EXPECT_EQ(sendto(client, "x", 1, MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address),
                   sizeof address),
            -1);
  close(client);
  EXPECT_TRUE(ownerIsAlive(dir));
}

TEST_F(OwnerSignTest, WorksBelowAPathThatIsTooLongForASocketsAddress) {
  const rt::String deep = dir + "/" + rt::String(std::string(120, 'd'));
  std::filesystem::create_directory(deep.str());
  EXPECT_FALSE(ownerIsAlive(deep));
  const OwnerSign sign(deep);
  EXPECT_TRUE(ownerIsAlive(deep));
}

TEST_F(OwnerSignTest, IsSeenByOneWithoutAStandardInput) {
  const OwnerSign sign(dir);
  EXPECT_EXIT(
      {
        close(STDIN_FILENO);
        _exit(ownerIsAlive(dir) ? EXIT_SUCCESS : EXIT_FAILURE);
      },
      testing::ExitedWithCode(EXIT_SUCCESS), "");
}

TEST_F(OwnerSignTest, OfADirectoryThatIsNotThereIsNoneAndCannotBeMade) {
  EXPECT_FALSE(ownerIsAlive(dir + "/none"));
  try {
    const OwnerSign sign(dir + "/none");
    FAIL() << "nothing was thrown";
  } catch (const Error& error) {
    EXPECT_EQ(error.trouble(), Trouble::failed);
    EXPECT_EQ(error.what(), "cannot make the socket " + dir.str() +
                                "/none/vmagentd.alive: No such file or directory");
  }
}

}  // namespace
}  // namespace statedb
