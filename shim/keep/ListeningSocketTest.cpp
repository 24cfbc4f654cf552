// The agent's socket, made by the shim or handed over.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <fstream>

#include "runtime/base/fakes/TestFolder.h"
#include "shim/base/Failure.h"
#include "shim/keep/ListeningSocket.h"

namespace shim {
namespace {

using rt::fakes::contentOf;
using rt::fakes::modeOf;
using rt::fakes::TestFolder;
using testing::ElementsAre;
using testing::HasSubstr;

bool canConnect(const std::string& path) {
  const rt::Descriptor client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return connect(client.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

TEST(ListeningSocket, ListensAtOnceAndGoesWithItsOwner) {
  const TestFolder folder;
  {
    ListeningSocket socket(folder / "m", "monitor");
    EXPECT_TRUE(canConnect(folder / "m"));
    EXPECT_EQ(modeOf(folder / "m"), 0660);
    EXPECT_TRUE(socket.accept());
    EXPECT_FALSE(socket.accept());
  }
  EXPECT_EQ(modeOf(folder / "m"), -1);
}

TEST(ListeningSocket, DoesNotSpeakOfWhomItCannotTakeAgainAndAgain) {
  const TestFolder folder;
  ListeningSocket socket(folder / "m", "monitor");
  const int number = socket.number();
  const rt::Descriptor client = connectionTo(folder / "m");
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none{0, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_FALSE(socket.accept());
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(socket.number(), -1);
  EXPECT_EQ(socket.number(), number);
  EXPECT_TRUE(socket.accept());
  EXPECT_FALSE(socket.accept());
  EXPECT_EQ(socket.number(), number) << "nobody waits";
}

TEST(ListeningSocket, TakesThePlaceOfOneThatIsLeftOver) {
  const TestFolder folder;
  const ListeningSocket first(folder / "m", "monitor");
  ListeningSocket second(folder / "m", "monitor");
  EXPECT_TRUE(canConnect(folder / "m"));
  EXPECT_TRUE(second.accept());
}

TEST(ListeningSocket, RemovesNoOthers) {
  const TestFolder folder;
  const ListeningSocket first(folder / "m", "monitor");
  const ListeningSocket second(folder / "m", "monitor");
  first.remove();
  EXPECT_TRUE(canConnect(folder / "m"));
}

TEST(ListeningSocket, TakesThePlaceOfNoOtherFile) {
  const TestFolder folder;
  std::ofstream(folder / "m") << "precious";
  try {
    const ListeningSocket socket(folder / "m", "monitor");
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_THAT(failure.what(), HasSubstr("is taken by what is no socket: remove it"));
  }
  EXPECT_EQ(contentOf(folder / "m"), "precious");
}

TEST(ListeningSocket, IsRefusedAPathThatIsTooLong) {
  try {
    const ListeningSocket socket("/" + std::string(107, 'x'), "monitor");
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_THAT(failure.what(), HasSubstr("is too long: it must have at most 107 characters"));
  }
}

// What a daemon hands over: a descriptor of a socket that listens at a path.
class InheritedListener : public testing::Test {
 protected:
  InheritedListener() : handed(fcntl(made.number(), F_DUPFD, 0)) {}

  bool isThere() const { return rt::fakes::modeOf(path) != -1; }
  std::unique_ptr<ListeningSocket> another() const {
    return std::make_unique<ListeningSocket>(path, copyOf(handed));
  }

  const rt::fakes::TestFolder folder;
  const std::string path = folder / "guest0.monitor";
  ListeningSocket made{path, "monitor", ListeningSocket::Users::ours};
  const rt::Descriptor handed;
};

TEST_F(InheritedListener, IsOursAloneOnceItIsTaken) {
  const int number = fcntl(made.number(), F_DUPFD, 0);
  std::vector<int> inherited{100, number, 101};
  const rt::Descriptor taken = takeListener(number, inherited);
  EXPECT_EQ(taken.number(), number);
  EXPECT_THAT(inherited, ElementsAre(100, 101));
  EXPECT_NE(fcntl(number, F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(InheritedListener, IsNoneThatWasNotInherited) {
  std::vector<int> inherited;
  EXPECT_FALSE(takeListener(handed.number(), inherited));
  EXPECT_FALSE(takeListener(-1, inherited));
  EXPECT_TRUE(listens(handed.number())) << "it is still its owner's";
}

TEST_F(InheritedListener, IsNoneThatDoesNotListen) {
  const rt::Descriptor client = connectionTo(path);
  std::vector<int> inherited{client.number()};
  EXPECT_FALSE(takeListener(client.number(), inherited));
  EXPECT_THAT(inherited, ElementsAre(client.number())) << "whatever else it is";
}

TEST_F(InheritedListener, DoesNotKeepUsWaiting) {
  fcntl(handed.number(), F_SETFL, 0);
  const auto socket = another();
  EXPECT_FALSE(socket->accept());
}

TEST_F(InheritedListener, IsLeftToItsMakerUnlessItIsRemoved) {
  auto first = another();
  first.reset();
  EXPECT_TRUE(isThere());
  another()->remove();
  EXPECT_FALSE(isThere());
}

TEST_F(InheritedListener, StaysForTheNextThatHasIt) {
  const auto first = another();
  const auto next = another();
  first->giveWayTo(*next);
  first->remove();
  EXPECT_TRUE(isThere());
}

TEST_F(InheritedListener, IsRemovedThoughTheNextIsElsewhere) {
  const ListeningSocket next(folder / "other", "monitor");
  another()->giveWayTo(next);
  EXPECT_FALSE(isThere());
}

TEST_F(InheritedListener, IsReplacedWhereThereIsNone) {
  const auto socket = monitorSocket(path, rt::Descriptor());
  EXPECT_NE(socket->number(), -1);
  EXPECT_EQ(rt::fakes::modeOf(path), 0600);
}

}  // namespace
}  // namespace shim
