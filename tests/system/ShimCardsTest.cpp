// The cards of a guest on a real QEMU, and macvtaps.
#include <gmock/gmock.h>

#include <filesystem>

#include "netlink/MacvtapSetup.h"
#include "runtime/fakes/TraceRecorder.h"
#include "shim/fakes/ShimWorld.h"
#include "tests/system/KernelSandbox.h"

namespace shim {
namespace {

using fakes::AgentClient;
using fakes::queryStatus;
using fakes::realQemu;
using rt::fakes::contentOf;
using testing::HasSubstr;
using testing::Not;

// As udevd does, while the agent waits.
void makeNode() { Vm::fakes::makeTapNode("macvtap0"); }

class ShimCards : public fakes::ShimWorld {
 protected:
  ShimCards() {
    Vm::fakes::ip("link add low0 type veth peer name peer0");
    Vm::fakes::ip("link set low0 up");
    Vm::fakes::ip("link set peer0 up");
  }
  ~ShimCards() override { Vm::fakes::ip("link del low0"); }

  // How many tap devices the process has open.
  static long taps(pid_t pid) {
    long count = 0;
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd"))
      if (std::filesystem::read_symlink(entry.path()).string().starts_with("/dev/tap")) ++count;
    return count;
  }
  rt::fakes::TraceRecorder traces;
};

TEST_F(ShimCards, AreAttachedAndDetachedAgainAndAgain) {
  const auto shim = start(realQemu, 2);
  AgentClient agent(monitor());
  agent.bringUp();
  const char mac[] = "\x52\x54\x00\x12\x34\x56";
  const rt::Descriptor tap(netlink::setupMacvtap("low0", mac, makeNode).fd);
  ASSERT_TRUE(tap);
  for (int round = 0; round < 3; ++round) {
    EXPECT_THAT(agent.attach(0, tap.number()), testing::Each(HasSubstr(R"("return": {})")));
    EXPECT_EQ(taps(shim->qemu()), 1);
    EXPECT_EQ(taps(shim->pid()), 0);
    const auto answers = agent.detach(0);
    EXPECT_THAT(answers[0], HasSubstr(R"("return": {})"));
    EXPECT_THAT(answers[2], HasSubstr(R"("return": {})"));
    EXPECT_EQ(taps(shim->qemu()), 0);
  }
  EXPECT_THAT(contentOf(file("shim.log")), Not(HasSubstr("problem")));
}

TEST_F(ShimCards, AreNotBoundTwiceWhichWouldEndQemu) {
  const auto shim = start(realQemu, 2);
  AgentClient agent(monitor());
  agent.bringUp();
  const char mac[] = "\x52\x54\x00\x12\x34\x56";
  const rt::Descriptor tap(netlink::setupMacvtap("low0", mac, makeNode).fd);
  ASSERT_TRUE(tap);
  agent.attach(0, tap.number());
  EXPECT_THAT(agent.ask(R"({ "execute": "netdev_set","arguments": {"nicid": "net1","netdevid": )"
                        R"("hostnet0"},"id": "netdev" })"),
              HasSubstr("is bound to card 'net0'"));
  EXPECT_THAT(agent.ask(queryStatus), HasSubstr(R"("running": true)"));
}

}  // namespace
}  // namespace shim
