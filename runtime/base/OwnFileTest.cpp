// Files of ours where others may put theirs.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

#include "runtime/base/OwnFile.h"
#include "runtime/base/fakes/TestFolder.h"

namespace rt {
namespace {

namespace fs = std::filesystem;

constexpr uid_t somebody = 65534;

// As root, whatever is named is given to another user; there is no other user otherwise.
bool giveAway(const std::string& path) {
  return geteuid() == 0 && lchown(path.c_str(), somebody, somebody) == 0;
}

class OwnFile : public testing::Test {
 protected:
  OwnFile() {
    directory = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    std::ofstream(path + "/precious") << "all my work";
    EXPECT_EQ(chmod((path + "/precious").c_str(), 0644), 0);
  }
  ~OwnFile() override { close(directory); }
  struct stat factsOf(const std::string& name) const {
    struct stat facts {};
    EXPECT_EQ(lstat((path + "/" + name).c_str(), &facts), 0) << name;
    return facts;
  }
  unsigned modeOf(const std::string& name) const { return factsOf(name).st_mode & 07777U; }
  void expectPreciousIsUntouched() const {
    std::ifstream file(path + "/precious");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "all my work");
    EXPECT_EQ(modeOf("precious"), 0644U);
  }
  // Writes into the file NAME as one of ours.
  void writeTo(const char* name) const {
    const int file = openOwnFile(directory, name, O_WRONLY, 0640);
    ASSERT_GE(file, 0) << std::strerror(errno);
    EXPECT_TRUE(isOwnFile(file));
    EXPECT_EQ(write(file, "x", 1), 1);
    close(file);
    EXPECT_TRUE(S_ISREG(factsOf(name).st_mode));
    EXPECT_EQ(factsOf(name).st_uid, geteuid());
    EXPECT_EQ(factsOf(name).st_size, 1);
  }

  const rt::fakes::TestFolder folder;
  const std::string& path = folder.path();
  int directory = -1;
};

TEST_F(OwnFile, HasItsModeWhateverTheUmaskAndWhateverItHad) {
  const mode_t before = umask(0777);
  writeTo("log");
  umask(before);
  EXPECT_EQ(modeOf("log"), 0640U);
  ASSERT_EQ(chmod((path + "/log").c_str(), 0666), 0);
  close(openOwnFile(directory, "log", O_WRONLY, 0640));
  EXPECT_EQ(modeOf("log"), 0640U);
}

TEST_F(OwnFile, KeepsWhatIsInIt) {
  writeTo("log");
  close(openOwnFile(directory, "log", O_WRONLY, 0640));
  EXPECT_EQ(factsOf("log").st_size, 1);
}

TEST_F(OwnFile, IsNotInherited) {
  const int file = openOwnFile(directory, "log", O_WRONLY, 0640);
  EXPECT_TRUE((fcntl(file, F_GETFD) & FD_CLOEXEC) != 0);
  close(file);
}

TEST_F(OwnFile, TakesThePlaceOfALink) {
  fs::create_symlink("precious", path + "/log");
  writeTo("log");
  expectPreciousIsUntouched();
}

TEST_F(OwnFile, TakesThePlaceOfAnotherNameOfAFile) {
  fs::create_hard_link(path + "/precious", path + "/log");
  writeTo("log");
  expectPreciousIsUntouched();
}

TEST_F(OwnFile, TakesThePlaceOfAPipeWhetherItIsReadOrNot) {
  ASSERT_EQ(mkfifo((path + "/log").c_str(), 0666), 0);
  writeTo("log");
  fs::remove(path + "/log");
  ASSERT_EQ(mkfifo((path + "/log").c_str(), 0666), 0);
  const int reader = open((path + "/log").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  writeTo("log");
  close(reader);
}

TEST_F(OwnFile, TakesThePlaceOfASocket) {
  const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, (path + "/log").c_str());
  ASSERT_EQ(bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  writeTo("log");
  close(socket);
}

TEST_F(OwnFile, TakesThePlaceOfAnothersFile) {
  std::ofstream(path + "/log") << "what he wants us to have said";
  if (!giveAway(path + "/log")) fs::remove(path + "/log");
  writeTo("log");
}

TEST_F(OwnFile, IsNoneWhereADirectoryStands) {
  fs::create_directories(path + "/log/full");
  EXPECT_EQ(openOwnFile(directory, "log", O_WRONLY, 0640), -1);
  EXPECT_EQ(errno, EISDIR);
}

class OwnDirectory : public OwnFile {
 protected:
  int make(const char* name) const { return openOwnDirectory(directory, name, 02750, group); }
  const gid_t group = geteuid() == 0 ? 4242 : getegid();
};

TEST_F(OwnDirectory, HasItsModeAndGroupWhateverTheUmaskAndWhateverItHad) {
  const mode_t before = umask(0777);
  close(make("vm"));
  umask(before);
  EXPECT_EQ(modeOf("vm"), 02750U);
  EXPECT_EQ(factsOf("vm").st_gid, group);
  ASSERT_EQ(chmod((path + "/vm").c_str(), 0777), 0);
  ASSERT_EQ(chown((path + "/vm").c_str(), geteuid(), getegid()), 0);
  close(make("vm"));
  EXPECT_EQ(modeOf("vm"), 02750U);
  EXPECT_EQ(factsOf("vm").st_gid, group);
}

TEST_F(OwnDirectory, TakesThePlaceOfALinkAndOfAFile) {
  fs::create_directory(path + "/others");
  ASSERT_EQ(chmod((path + "/others").c_str(), 0755), 0);
  fs::create_directory_symlink("others", path + "/vm");
  close(make("vm"));
  EXPECT_TRUE(S_ISDIR(factsOf("vm").st_mode));
  EXPECT_EQ(modeOf("others"), 0755U);
  std::ofstream(path + "/web1") << "x";
  close(make("web1"));
  EXPECT_TRUE(S_ISDIR(factsOf("web1").st_mode));
}

// Who may write beside it can have put it there.
TEST_F(OwnDirectory, ShowsNobodyWhatIsInAPrivateOne) {
  fs::create_directory(path + "/vm");
  ASSERT_EQ(chmod((path + "/vm").c_str(), 0700), 0);
  std::ofstream(path + "/vm/secret") << "x";
  EXPECT_EQ(make("vm"), -1);
  EXPECT_EQ(errno, EPERM);
  EXPECT_EQ(modeOf("vm"), 0700U);
  fs::remove(path + "/vm/secret");
  close(make("vm"));
  EXPECT_EQ(modeOf("vm"), 02750U);
}

TEST_F(OwnDirectory, IsNoneWhereAnotherUsersStands) {
  fs::create_directory(path + "/vm");
  if (!giveAway(path + "/vm")) return;
  const unsigned mode = modeOf("vm");
  EXPECT_EQ(make("vm"), -1);
  EXPECT_EQ(errno, EPERM);
  EXPECT_EQ(modeOf("vm"), mode);
}

}  // namespace
}  // namespace rt
