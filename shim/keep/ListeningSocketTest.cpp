#include <fcntl.h>
#include <gmock/gmock.h>

#include "runtime/fakes/TestFolder.h"
#include "shim/keep/ListeningSocket.h"

namespace shim {
namespace {

using testing::ElementsAre;

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
