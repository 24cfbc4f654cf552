// What others may put where a shim's words are looked for.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "host/base/FirstLine.h"

namespace host {
namespace {

namespace fs = std::filesystem;

class FirstLineOf : public testing::Test {
 protected:
  FirstLineOf() {
    char name[] = "/tmp/firstLineXXXXXX";
    path = mkdtemp(name);
  }
  ~FirstLineOf() override { fs::remove_all(path); }
  void put(const std::string& text) const { std::ofstream(path + "/problem") << text; }
  std::string read() const { return firstLine(rt::String(path), "problem").str(); }

  std::string path;
};

TEST_F(FirstLineOf, AFileIsItsFirstLineOnly) {
  put("no disk\nno memory\n");
  EXPECT_EQ(read(), "no disk");
  put("no end");
  EXPECT_EQ(read(), "no end");
  put("");
  EXPECT_EQ(read(), "");
}

TEST_F(FirstLineOf, ALongLineIsItsBegin) {
  put(std::string(100'000, 'x'));
  EXPECT_EQ(read(), std::string(512, 'x'));
}

TEST_F(FirstLineOf, WhatIsNotThereIsEmpty) {
  EXPECT_EQ(read(), "");
  EXPECT_EQ(firstLine("/no/such", "problem"), "");
}

TEST_F(FirstLineOf, ALinkIsEmptyWhereverItLeads) {
  std::ofstream(path + "/secret") << "the secret";
  fs::create_symlink("secret", path + "/problem");
  EXPECT_EQ(read(), "");
  fs::remove(path + "/problem");
  fs::create_symlink("/dev/zero", path + "/problem");
  EXPECT_EQ(read(), "");
  fs::remove(path + "/problem");
  fs::create_hard_link(path + "/secret", path + "/problem");
  EXPECT_EQ(read(), "") << "another name of a file";
}

TEST_F(FirstLineOf, AFileBehindALinkedDirectoryIsEmpty) {
  put("no disk");
  fs::create_directory_symlink(path, path + "/web1");
  EXPECT_EQ(firstLine(rt::String(path + "/web1"), "problem"), "");
}

TEST_F(FirstLineOf, APipeIsEmptyAndNotWaitedFor) {
  ASSERT_EQ(mkfifo((path + "/problem").c_str(), 0666), 0);
  alarm(10);
  EXPECT_EQ(read(), "");
  alarm(0);
}

TEST_F(FirstLineOf, AnotherUsersFileIsEmpty) {
  put("what he wants us to say");
  constexpr uid_t somebody = 65534;
  const uid_t user = geteuid() == 0 ? somebody : geteuid();
  ASSERT_EQ(chown((path + "/problem").c_str(), user, static_cast<gid_t>(-1)), 0);
  EXPECT_EQ(read(), user == geteuid() ? "what he wants us to say" : "");
}

}  // namespace
}  // namespace host
