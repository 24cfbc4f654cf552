// Several viewers at one guest's console.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>

#include <memory>

#include "runtime/base/fakes/TestFolder.h"
#include "shim/keep/Console.h"

namespace shim {
namespace {

using rt::fakes::TestFolder;
using testing::EndsWith;
using testing::HasSubstr;

class ViewersTest : public testing::Test {
 protected:
  ViewersTest() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) std::abort();
    guest.reset(ends[0]);
    console = std::make_unique<Console>(rt::Descriptor(ends[1]), folder / "console.log",
                                        folder / "console.sock");
  }
  // Lets the console do all that it can do now.
  void work() const {
    for (int i = 0; i < 10'000; ++i) {
      std::vector<pollfd> polled;
      console->addTo(polled);
      if (poll(polled.data(), polled.size(), 0) <= 0) return;
      console->ready(polled.data());
    }
    FAIL() << "it never rests";
  }
  // The guest writes all of it; whether it could.
  bool guestWrites(std::string_view bytes) const {
    for (int refused = 0; !bytes.empty() && refused < 100;) {
      const ssize_t count = send(guest.number(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (count > 0) bytes.remove_prefix(static_cast<size_t>(count));
      if (count <= 0) ++refused;
      work();
    }
    return bytes.empty();
  }
  std::string guestReads() const {
    work();
    return all(guest);
  }
  rt::Descriptor viewer() const {
    rt::Descriptor connection = connectionTo(folder / "console.sock");
    work();
    return connection;
  }
  std::string seen(const rt::Descriptor& viewer) const {
    std::string seen;
    for (;;) {
      work();
      const std::string more = all(viewer);
      if (more.empty()) return seen;
      seen += more;
    }
  }
  void type(const rt::Descriptor& viewer, const std::string& text) const {
    ASSERT_EQ(write(viewer.number(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
    work();
  }
  static bool isDropped(const rt::Descriptor& viewer) {
    pollfd polled{viewer.number(), 0, 0};
    return poll(&polled, 1, 0) == 1 && (polled.revents & POLLHUP) != 0;
  }
  static std::string all(const rt::Descriptor& from) {
    std::string got;
    char bytes[4096];
    for (;;) {
      const ssize_t count = read(from.number(), bytes, sizeof bytes);
      if (count <= 0) return got;
      got.append(bytes, static_cast<size_t>(count));
    }
  }

  const TestFolder folder;
  rt::Descriptor guest;
  std::unique_ptr<Console> console;
};

TEST_F(ViewersTest, AllSeeWhatTheGuestWrites) {
  const rt::Descriptor first = viewer();
  const rt::Descriptor second = viewer();
  guestWrites("login:\xff\r\n");
  EXPECT_EQ(seen(first), "login:\xff\r\n");
  EXPECT_EQ(seen(second), "login:\xff\r\n");
  EXPECT_EQ(rt::fakes::modeOf(folder / "console.sock"), 0660);
}

TEST_F(ViewersTest, WhoComeLateSeeTheNewest) {
  guestWrites(std::string(200'000, 'x') + "end");
  const std::string late = seen(viewer());
  EXPECT_EQ(late.size(), Replay::capacity);
  EXPECT_THAT(late, EndsWith("xend"));
}

TEST_F(ViewersTest, TheFirstThatSendsWrites) {
  const rt::Descriptor reader = viewer();
  const rt::Descriptor writer = viewer();
  type(writer, "root\r\x03");
  EXPECT_EQ(guestReads(), "root\r\x03");
  EXPECT_EQ(seen(writer), "");
  EXPECT_EQ(seen(reader), "");
}

TEST_F(ViewersTest, TheSecondThatSendsIsToldOnceThatItReads) {
  const rt::Descriptor writer = viewer();
  const rt::Descriptor other = viewer();
  type(writer, "a");
  type(other, "b");
  type(other, "c");
  EXPECT_EQ(guestReads(), "a");
  EXPECT_EQ(seen(other), "\r\n[read-only: another viewer writes on this console]\r\n");
  guestWrites("more");
  EXPECT_EQ(seen(other), "more");
}

TEST_F(ViewersTest, AnotherMayWriteOnceTheWriterIsGone) {
  rt::Descriptor writer = viewer();
  const rt::Descriptor other = viewer();
  type(writer, "a");
  type(other, "b");
  writer.reset();
  work();
  type(other, "c");
  EXPECT_EQ(guestReads(), "ac");
}

TEST_F(ViewersTest, WhoAskToViewNeverWrite) {
  const rt::Descriptor reader = viewer();
  type(reader, "view\nroot\r");
  type(reader, "root\r");
  EXPECT_EQ(guestReads(), "");
  EXPECT_EQ(seen(reader), "");
  const rt::Descriptor writer = viewer();
  type(writer, "a");
  EXPECT_EQ(guestReads(), "a");
}

TEST_F(ViewersTest, MayTypeTheWordView) {
  const rt::Descriptor writer = viewer();
  for (const char* const key : {"v", "i", "e", "w", "\n"}) type(writer, key);
  EXPECT_EQ(guestReads(), "view\n");
}

TEST_F(ViewersTest, TypeBesideTheTerminal) {
  const rt::Descriptor writer = viewer();
  type(writer, "a");
  const rt::Descriptor terminal(open(console->terminal().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  ASSERT_EQ(write(terminal.number(), "b", 1), 1);
  std::string got;
  for (int i = 0; i < 4'000 && got.size() < 2; ++i) {
    got += guestReads();
    poll(nullptr, 0, 5);
  }
  EXPECT_EQ(got, "ab");
}

TEST_F(ViewersTest, ThatStallAreDroppedAndTheOthersSeeAll) {
  const rt::Descriptor stalled = viewer();
  const rt::Descriptor other = viewer();
  std::string all;
  for (int i = 0; i < 100; ++i) {
    ASSERT_TRUE(guestWrites(std::string(20'000, static_cast<char>('a' + i % 26))));
    all += seen(other);
  }
  EXPECT_EQ(all.size(), 2'000'000U);
  EXPECT_TRUE(isDropped(stalled));
  EXPECT_FALSE(isDropped(other));
}

TEST_F(ViewersTest, AreSoManyAndNoMore) {
  std::vector<rt::Descriptor> viewers;
  for (size_t i = 0; i < Viewers::mostViewers; ++i) viewers.push_back(viewer());
  const rt::Descriptor late = viewer();
  EXPECT_THAT(seen(late), HasSubstr("too many viewers"));
  EXPECT_TRUE(isDropped(late));
  viewers.pop_back();
  work();
  const rt::Descriptor next = viewer();
  EXPECT_FALSE(isDropped(next));
}

TEST_F(ViewersTest, TypeNoFasterThanTheGuestTakes) {
  const rt::Descriptor writer = viewer();
  size_t typed = 0;
  for (int i = 0; i < 100'000; ++i) {
    const ssize_t count = write(writer.number(), "0123456789abcdef", 16);
    if (count > 0) typed += static_cast<size_t>(count);
    work();
    if (count < 0) break;
  }
  std::string got;
  for (std::string more = guestReads(); !more.empty(); more = guestReads()) got += more;
  EXPECT_EQ(got.size(), typed);
}

TEST_F(ViewersTest, MayComeAndGo) {
  for (int i = 0; i < 100; ++i) {
    const rt::Descriptor one = viewer();
    type(one, "x");
    guestWrites("y");
  }
  work();
  EXPECT_EQ(guestReads(), std::string(100, 'x'));
}

}  // namespace
}  // namespace shim
