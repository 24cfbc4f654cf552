// Where the daemon's lines go, with a reader who stands still.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include "host/base/LineOutput.h"
#include "runtime/base/fakes/TestFolder.h"

namespace host {
namespace {

// As of a descriptor that waits: without a cure each of these tests would never end.
class LineOutputTest : public testing::Test {
 protected:
  ~LineOutputTest() override {
    for (const int end : {reading, writing})
      if (end >= 0) close(end);
  }
  void pipeIs() {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    reading = ends[0];
    writing = ends[1];
  }
  void socketIs() {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    reading = ends[0];
    writing = ends[1];
  }
  void terminalIs() {
    reading = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(unlockpt(reading), 0);
    char name[64];
    ASSERT_EQ(ptsname_r(reading, name, sizeof name), 0);
    writing = open(name, O_WRONLY | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(writing, 0);
  }

  // Numbered lines until one finds no room; their number.
  int fill(LineOutput& output) const {
    for (int count = 0;; ++count)
      if (!output.write(line(count))) return count;
  }
  static std::string line(int number) {
    return "line " + std::to_string(number) + " " + std::string(70, 'x') + "\n";
  }
  // All that can be read now.
  std::string read() const {
    fcntl(reading, F_SETFL, O_NONBLOCK);
    std::string all;
    char bytes[4096];
    ssize_t size = 0;
    while ((size = ::read(reading, bytes, sizeof bytes)) > 0)
      all.append(bytes, static_cast<size_t>(size));
    std::erase(all, '\r');  // which a terminal adds
    return all;
  }
  static std::string lines(int count) {
    std::string all;
    for (int i = 0; i < count; ++i) all += line(i);
    return all;
  }
  // A reader that stands still costs what is written meanwhile, and never a part of a line.
  void expectWholeLines() {
    LineOutput output(writing);
    const int count = fill(output);
    ASSERT_GT(count, 0);
    EXPECT_FALSE(output.write(line(count)));
    std::string seen = read();
    EXPECT_TRUE(output.write("after\n"));
    seen += read();
    EXPECT_TRUE(seen == lines(count) + "after\n") << seen.substr(0, 200);
  }
  void expectSharedFlagsAreLeftAlone() const {
    const int before = fcntl(writing, F_GETFL);
    LineOutput output(writing);
    fill(output);
    EXPECT_EQ(fcntl(writing, F_GETFL), before);
    EXPECT_EQ(before & O_NONBLOCK, 0);
  }

  int reading = -1;
  int writing = -1;
};

TEST_F(LineOutputTest, OfAPipeThatNobodyReadsIsLostAndWaitsForNobody) {
  pipeIs();
  expectWholeLines();
}

TEST_F(LineOutputTest, OfASocketThatNobodyReadsIsLostAndWaitsForNobody) {
  socketIs();
  expectWholeLines();
}

TEST_F(LineOutputTest, OfATerminalThatNobodyReadsIsLostAndWaitsForNobody) {
  terminalIs();
  expectWholeLines();
}

// As where there is no /proc.
TEST_F(LineOutputTest, OfAPipeThatCannotBeOpenedAnewIsLostAndWaitsForNobody) {
  pipeIs();
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit none{0, limit.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  LineOutput output(writing);
  setrlimit(RLIMIT_NOFILE, &limit);
  const int count = fill(output);
  EXPECT_TRUE(read() == lines(count));
  EXPECT_TRUE(output.write("after\n"));
  EXPECT_EQ(read(), "after\n");
}

TEST_F(LineOutputTest, ChangesNoFlagThatOthersShare) {
  pipeIs();
  expectSharedFlagsAreLeftAlone();
}

TEST_F(LineOutputTest, OfATerminalChangesNoFlagThatOthersShare) {
  terminalIs();
  expectSharedFlagsAreLeftAlone();
}

TEST_F(LineOutputTest, ThatIsLongerThanThereIsRoomIsEndedBeforeTheNextOne) {
  pipeIs();
  LineOutput output(writing);
  std::string longLine(200'000, 'x');
  longLine.back() = '\n';
  EXPECT_TRUE(output.write(longLine)) << "it is begun";
  std::string seen;
  for (int i = 0; i < 10 && seen.size() < longLine.size(); ++i) {
    seen += read();
    (void)output.write("next\n");
  }
  seen += read();
  EXPECT_TRUE(seen.substr(0, longLine.size()) == longLine);
  EXPECT_THAT(seen.substr(longLine.size()), testing::StartsWith("next\n"));
}

TEST_F(LineOutputTest, OfAFileIsWrittenBehindWhatOthersWrote) {
  const rt::fakes::TestFolder folder;
  const std::string name = folder / "log";
  writing = open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GE(writing, 0);
  LineOutput output(writing);
  EXPECT_TRUE(output.write("one\n"));
  EXPECT_EQ(write(writing, "two\n", 4), 4);
  EXPECT_TRUE(output.write("three\n"));
  reading = open(name.c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(read(), "one\ntwo\nthree\n");
}

TEST_F(LineOutputTest, OfAReaderThatIsGoneIsLost) {
  signal(SIGPIPE, SIG_IGN);  // as the daemon does
  for (const bool isSocket : {false, true}) {
    isSocket ? socketIs() : pipeIs();
    LineOutput output(writing);
    close(reading);
    EXPECT_FALSE(output.write("one\n"));
    close(writing);
    reading = writing = -1;
  }
  signal(SIGPIPE, SIG_DFL);
}

TEST_F(LineOutputTest, OfAClosedDescriptorIsLost) { EXPECT_FALSE(LineOutput(-1).write("one\n")); }

}  // namespace
}  // namespace host
