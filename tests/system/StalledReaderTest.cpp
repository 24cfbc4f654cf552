// The daemon whose log nobody reads.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "tests/system/DaemonWorld.h"

namespace host::fakes {
namespace {

using testing::HasSubstr;
using testing::Not;

class StalledReader : public testing::Test {
 protected:
  ~StalledReader() override { close(reading); }

  // Of whatever is at `path`, which this process reads by `reading`, or does not.
  void expectThatItStopsNothing(const std::string& path) {
    world.launch({"--shim", "off", "--trace", "all"}, path);
    ASSERT_TRUE(waitUntil([&] { return world.vmctl({"list"}).status == 0; }));
    const int writing = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    pollfd full{writing, POLLOUT, 0};
    for (int round = 0; round < 40 && poll(&full, 1, 0) == 1; ++round) runVm(round);
    EXPECT_EQ(poll(&full, 1, 0), 0) << "there is still room";
    runVm(41);
    runVm(42);
    close(writing);
    EXPECT_TRUE(hears("web42.monitor"));
    EXPECT_EQ(world.end(SIGTERM), 0);
  }

  // All that can be read now.
  std::string take() const {
    std::string all;
    char bytes[4096];
    ssize_t size = 0;
    while ((size = read(reading, bytes, sizeof bytes)) > 0)
      all.append(bytes, static_cast<size_t>(size));
    return all;
  }

  // Whether that can be read within a while.
  bool hears(const std::string& text) const {
    std::string heard;
    return waitUntil([&] { return (heard += take()).find(text) != std::string::npos; });
  }

  DaemonWorld world;
  int reading = -1;

 private:
  void runVm(int number) {
    const std::string name = "web" + std::to_string(number);
    world.addVm(name, {"--enabled"});
    ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmStatus", name, R"("enabled":true)"); }));
    world.ctl({"remove", name, "--force", "--wait", "--timeout", "20"});
  }
};

TEST_F(StalledReader, HearsThatTheDaemonIsReadyOnceItReads) {
  const std::string path = "/var/run/log.pipe";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  reading = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  for (size_t more = 0; more < 2; ++more)
    while (write(reading, std::string(more == 0 ? 4096 : 1, 'x').data(), more == 0 ? 4096 : 1) >
           0) {
    }
  world.launch({"--shim", "off"}, path);
  ASSERT_TRUE(waitUntil([&] { return world.vmctl({"list"}).status == 0; }));
  world.addVm("web1");
  EXPECT_TRUE(waitUntil([&] { return !world.row("vmStatus", "web1").empty(); }));
  EXPECT_THAT(take(), Not(HasSubstr("ready")));
  EXPECT_TRUE(hears("vmagentd: ready\n"));
}

TEST_F(StalledReader, OfAPipeStopsNothing) {
  const std::string path = "/var/run/log.pipe";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  reading = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  expectThatItStopsNothing(path);
}

TEST_F(StalledReader, OfATerminalStopsNothing) {
  reading = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
  char name[64];
  ASSERT_EQ(unlockpt(reading), 0);
  ASSERT_EQ(ptsname_r(reading, name, sizeof name), 0);
  expectThatItStopsNothing(name);
}

TEST_F(StalledReader, OfAnIdleDaemonGetsNoLineForEachPoll) {
  world.start();
  world.addVm("web1", {"--enabled"});
  ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmStatus", "web1", R"("state":"Running")"); }));
  const std::string mark = "read error returns -1 with errno 11";
  const std::string log = world.log();
  const size_t first = log.find(mark);
  ASSERT_NE(first, std::string::npos);
  EXPECT_EQ(log.find(mark, first + 1), std::string::npos) << log;
}

}  // namespace
}  // namespace host::fakes
