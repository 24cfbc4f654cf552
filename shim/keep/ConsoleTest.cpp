// A guest's serial line, with a real pty at its end.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <filesystem>

#include "runtime/base/fakes/TestFolder.h"
#include "shim/keep/Console.h"

namespace shim {
namespace {

using rt::fakes::contentOf;
using rt::fakes::TestFolder;
using testing::EndsWith;

class ConsoleLine : public testing::Test {
 protected:
  ConsoleLine() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) std::abort();
    guest.reset(ends[0]);
    console = std::make_unique<Console>(rt::Descriptor(ends[1]), folder / "console.log",
                                        folder / "console.sock");
  }
  rt::Descriptor openTerminal() const {
    return rt::Descriptor(
        open(console->terminal().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  }
  // Lets the console do all that it can do now.
  void work() {
    for (int i = 0; i < 10'000; ++i) {
      std::vector<pollfd> polled;
      console->addTo(polled);
      if (poll(polled.data(), polled.size(), 0) <= 0) return;
      console->ready(polled.data());
    }
    FAIL() << "it never rests";
  }
  // The guest writes all of it; whether it could.
  bool guestWrites(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t count = send(guest.number(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (count > 0) bytes.remove_prefix(static_cast<size_t>(count));
      work();
      if (count <= 0 && ++refused > 100) return false;
    }
    return true;
  }
  // What comes, until there is as much of it, or nothing more for long.
  static std::string readAtLeast(
      const rt::Descriptor& from, size_t size, const std::function<void()>& meanwhile = [] {}) {
    std::string got;
    char bytes[4096];
    pollfd polled{from.number(), POLLIN, 0};
    // The kernel passes on what is written to a terminal when it finds the time.
    for (int idle = 0; got.size() < size && idle < 2'000;) {
      meanwhile();
      if (poll(&polled, 1, 5) <= 0) {
        ++idle;
        continue;
      }
      const ssize_t count = read(from.number(), bytes, sizeof bytes);
      if (count <= 0) break;
      got.append(bytes, static_cast<size_t>(count));
    }
    return got;
  }

  const TestFolder folder;
  rt::Descriptor guest;
  std::unique_ptr<Console> console;
  int refused = 0;
};

TEST_F(ConsoleLine, IsReadAtTheTerminal) {
  const rt::Descriptor terminal = openTerminal();
  guestWrites("login:\r\n\x04\xff");
  EXPECT_EQ(readAtLeast(terminal, 10), "login:\r\n\x04\xff");
}

TEST_F(ConsoleLine, IsTypedAtTheTerminal) {
  const rt::Descriptor terminal = openTerminal();
  ASSERT_EQ(write(terminal.number(), "root\r\x03", 6), 6);
  EXPECT_EQ(readAtLeast(guest, 6, [&] { work(); }), "root\r\x03");
}

TEST_F(ConsoleLine, IsNotEchoedToTheGuest) {
  guestWrites("hello\r\n");
  char byte = 0;
  EXPECT_LT(read(guest.number(), &byte, 1), 0);
}

TEST_F(ConsoleLine, IsLogged) {
  guestWrites("one\r\n");
  guestWrites("two\r\n");
  EXPECT_EQ(contentOf(folder / "console.log"), "one\r\ntwo\r\n");
}

TEST_F(ConsoleLine, IsReadByWhoComesLate) {
  guestWrites("early\r\n");
  const rt::Descriptor terminal = openTerminal();
  EXPECT_EQ(readAtLeast(terminal, 7), "early\r\n");
}

TEST_F(ConsoleLine, IsATerminalOfItsDirectorysGroup) {
  constexpr gid_t operators = 4242;
  const gid_t group = geteuid() == 0 ? operators : getegid();
  const std::string shared = folder / "shared";
  std::filesystem::create_directory(shared);
  ASSERT_EQ(chown(shared.c_str(), static_cast<uid_t>(-1), group), 0);
  const Console other(rt::Descriptor(), shared + "/console.log", shared + "/console.sock");
  struct stat terminal {};
  ASSERT_EQ(stat(other.terminal().c_str(), &terminal), 0);
  EXPECT_EQ(terminal.st_gid, group);
  EXPECT_EQ(terminal.st_mode & 07777U, 0660U);
}

TEST_F(ConsoleLine, OutlastsItsReaders) {
  for (int i = 0; i < 3; ++i) {
    const rt::Descriptor terminal = openTerminal();
    guestWrites("again\r\n");
    EXPECT_EQ(readAtLeast(terminal, 7), "again\r\n");
  }
}

TEST_F(ConsoleLine, NeverHoldsTheGuestUpWhenNobodyReads) {
  EXPECT_TRUE(guestWrites(std::string(4 * 1024 * 1024, 'x') + "end"));
  EXPECT_THAT(contentOf(folder / "console.log"), EndsWith("xend"));
}

TEST_F(ConsoleLine, NeverHoldsTheGuestUpWhenItsReaderStalls) {
  const rt::Descriptor terminal = openTerminal();
  EXPECT_TRUE(guestWrites(std::string(1024 * 1024, 'x') + "end"));
}

TEST_F(ConsoleLine, ShowsTheNewestToWhoComesAfterAFlood) {
  std::string flood;
  for (int i = 0; flood.size() < 1'000'000; ++i) flood += std::to_string(i) + "\n";
  guestWrites(flood);
  const rt::Descriptor terminal = openTerminal();
  const std::string seen = readAtLeast(terminal, 32 * 1024, [&] { work(); });
  ASSERT_GE(seen.size(), 32U * 1024);
  // A part of it as it was, and no older than the backlog and what a pty holds.
  const size_t at = flood.find(seen);
  ASSERT_NE(at, std::string::npos);
  EXPECT_GE(at, flood.size() - 3 * PtyBacklog::capacity);
}

TEST_F(ConsoleLine, RestsWhenNobodyReads) {
  guestWrites(std::string(100'000, 'x'));
  // Once the kernel has moved to the terminal's reader what it holds for it.
  const auto isAtRest = [&] {
    work();
    std::vector<pollfd> polled;
    console->addTo(polled);
    return poll(polled.data(), polled.size(), 50) == 0;
  };
  bool rests = false;
  for (int i = 0; i < 400 && !rests; ++i) rests = isAtRest();
  EXPECT_TRUE(rests);
}

TEST_F(ConsoleLine, TypesNoFasterThanTheGuestTakes) {
  const rt::Descriptor terminal = openTerminal();
  size_t typed = 0;
  for (int i = 0; i < 10'000; ++i) {
    const ssize_t count = write(terminal.number(), "0123456789abcdef", 16);
    if (count > 0) typed += static_cast<size_t>(count);
    work();
  }
  EXPECT_GT(typed, 1'000U);
  EXPECT_EQ(readAtLeast(guest, typed, [&] { work(); }).size(), typed);
}

TEST_F(ConsoleLine, IsLoggedToItsEnd) {
  ASSERT_EQ(write(guest.number(), "bye", 3), 3);
  guest.reset();
  console->drain();
  EXPECT_EQ(contentOf(folder / "console.log"), "bye");
  work();
}

}  // namespace
}  // namespace shim
