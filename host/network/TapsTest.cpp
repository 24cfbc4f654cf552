// Who has a tap's node open, with real processes.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <utility>

#include "host/network/Taps.h"
#include "runtime/base/Descriptor.h"
#include "runtime/base/fakes/TestFolder.h"

namespace host {
namespace {

using testing::Contains;
using testing::Not;
using testing::Optional;

// To read from, and to write to.
std::pair<rt::Descriptor, rt::Descriptor> pipeEnds() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) std::abort();
  return {rt::Descriptor(ends[0]), rt::Descriptor(ends[1])};
}

// Nobody's child, as another program is, for as long as this stands.
class Stranger {
 public:
  explicit Stranger(const std::string& file, int flags = O_RDWR | O_CREAT) {
    auto [isReady, ready] = pipeEnds();
    auto [end, ends] = pipeEnds();
    const pid_t child = fork();
    if (child == 0) {
      if (fork() != 0) _exit(0);
      ends.reset();
      const rt::Descriptor opened(open(file.c_str(), flags | O_CLOEXEC, 0600));
      char byte = opened ? 'y' : 'n';
      (void)!write(ready.number(), &byte, 1);
      (void)!read(end.number(), &byte, 1);
      _exit(0);
    }
    waitpid(child, nullptr, 0);
    end_ = std::move(ends);
    char byte = 0;
    EXPECT_EQ(read(isReady.number(), &byte, 1), 1);
    EXPECT_EQ(byte, 'y');
  }

 private:
  rt::Descriptor end_;  // read by it
};

// Stand for two devices: they are there for everybody, and nobody keeps them open.
constexpr const char* device = "/dev/full";
constexpr const char* another = "/dev/zero";

dev_t numberOf(const char* path) {
  struct stat file {};
  EXPECT_EQ(stat(path, &file), 0) << path;
  return file.st_rdev;
}

TEST(TapNodesOfOthers, AreThoseThatAProgramHasOpenWhichIsNoGuestOfOurs) {
  const Stranger stranger(device);
  const rt::Descriptor own(open(another, O_RDWR | O_CLOEXEC));
  ASSERT_TRUE(own);
  const auto others = nodesOfOthers({});
  EXPECT_THAT(others, Optional(Contains(numberOf(device))));
  EXPECT_THAT(others, Optional(Not(Contains(numberOf(another)))));
}

// Any user can, who may not open it.
TEST(TapNodesOfOthers, AreNoneThatAProgramOnlyNames) {
  const Stranger stranger(device, O_PATH);
  EXPECT_THAT(nodesOfOthers({}), Optional(Not(Contains(numberOf(device)))));
}

TEST(TapNodesOfOthers, AreNoneOfAGuestsUser) {
  const Stranger stranger(device);
  EXPECT_THAT(nodesOfOthers({.first = geteuid(), .last = geteuid()}),
              Optional(Not(Contains(numberOf(device)))));
}

}  // namespace
}  // namespace host
