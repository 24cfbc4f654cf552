// Cards that lose their interface for good, unless somebody looks after them.
#include <gtest/gtest.h>

#include <csignal>

#include "tests/system/FaultWorld.h"

namespace host::fakes {
namespace {

class CutOffCard : public testing::Test {
 protected:
  static void addPort() {
    ip("link add Ethernet1 type veth peer name peer-Ethernet1");
    ip("link set Ethernet1 up");
    ip("link set peer-Ethernet1 up");
  }
  void runGuest() {
    world.start({"--trace", "1,8"});
    addPort();
    ASSERT_NO_FATAL_FAILURE(
        world.runGuests({"web1"}, {"--nic", "model=e1000,mac=52:54:00:00:00:01,intf=Ethernet1"}));
    expected.qemu = FaultWorld::qemu("web1");
    ASSERT_TRUE(world.settles({expected}));
  }
  // How often the daemon said that, at least.
  bool says(const std::string& text, int times = 1) const {
    return waitUntil([&] {
      const std::string log = world.log();
      int count = 0;
      for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1))
        ++count;
      return count >= times;
    });
  }
  // What was said of the card is over: its second attaching has come to its end.
  void expectAttachedAnew() {
    EXPECT_TRUE(says(R"("up": true},"id": "setlink" }\n with fd)", 2)) << world.log();
    EXPECT_TRUE(world.settles({expected}));
    EXPECT_TRUE(waitUntil([this] { return world.row("vmProblem", "web1").empty(); }));
    EXPECT_TRUE(world.rests({expected}));
  }

  FaultWorld world;
  Expected expected{"web1", true, 0, 1};
};

// The agent asks for the card to be given up, and has no answer in its 5 seconds.
TEST_F(CutOffCard, IsAttachedThoughItsShimStoodStillWhenItsInterfaceWent) {
  runGuest();
  const pid_t shim = world.keeper("web1");
  FaultWorld::signal(shim, SIGSTOP);
  ip("link del Ethernet1");
  EXPECT_TRUE(says("QMP message timed out"));
  FaultWorld::signal(shim, SIGCONT);
  addPort();
  expectAttachedAnew();
}

TEST_F(CutOffCard, IsAttachedThoughItsShimStoodStillWhenItsInterfaceCame) {
  runGuest();
  ip("link del Ethernet1");
  Expected unplugged = expected;
  unplugged.cards = 0;
  EXPECT_TRUE(world.settles({unplugged}));
  const pid_t shim = world.keeper("web1");
  FaultWorld::signal(shim, SIGSTOP);
  addPort();
  EXPECT_TRUE(says("QMP message timed out"));
  FaultWorld::signal(shim, SIGCONT);
  expectAttachedAnew();
}

}  // namespace
}  // namespace host::fakes
