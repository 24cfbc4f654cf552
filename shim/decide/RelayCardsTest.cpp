// The guest's cards: what is asked of QEMU to bind netdevs to them, and what the agent hears.
#include <gmock/gmock.h>

#include "shim/decide/Relay.h"
#include "shim/fakes/RelayWorld.h"

namespace shim {
namespace {

using fakes::done;
using fakes::RelayWorld;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

TEST(RelayCards, AreAttachedByAHubPort) {
  RelayWorld world;
  world.begin();
  EXPECT_THAT(world.attach("net1", "hostnet1"),
              ElementsAre(done("getfd"), done("netdev"), done("netdev"), done("setlink")));
  EXPECT_THAT(world.qemu.netdevs(),
              UnorderedElementsAre(Pair("hub-net0", "net0"), Pair("hub-net1", "net1"),
                                   Pair("hostnet1", ""), Pair("hub-hostnet1", "hostnet1")));
  EXPECT_EQ(world.qemu.asked()[3],
            "{\"execute\":\"netdev_add\",\"arguments\":{\"type\":\"hubport\",\"hubid\":1,"
            "\"id\":\"hub-hostnet1\",\"netdev\":\"hostnet1\"}}\n");
}

TEST(RelayCards, SeeTheLinkOfTheNetdevTheyAreBoundTo) {
  RelayWorld world;
  world.begin();
  world.attach("net0", "hostnet0");
  EXPECT_TRUE(world.qemu.hasLink("net0"));
  EXPECT_THAT(
      world.ask(
          R"({"execute":"set_link","arguments":{"name":"hostnet0","up":false},"id":"setlink"})"),
      ElementsAre(done("setlink")));
  EXPECT_FALSE(world.qemu.hasLink("hostnet0"));
  EXPECT_FALSE(world.qemu.hasLink("net0"));
  world.ask(R"({"execute":"set_link","arguments":{"name":"hostnet0","up":true},"id":"setlink"})");
  EXPECT_TRUE(world.qemu.hasLink("net0"));
}

TEST(RelayCards, AreDetachedHubPortFirst) {
  RelayWorld world;
  world.begin();
  world.attach("net0", "hostnet0");
  EXPECT_THAT(world.detach("hostnet0"),
              ElementsAre(done("setlink"), HasSubstr("closefd"), done("netdev")));
  EXPECT_THAT(world.qemu.netdevs(),
              UnorderedElementsAre(Pair("hub-net0", "net0"), Pair("hub-net1", "net1")));
  const auto& asked = world.qemu.asked();
  EXPECT_THAT(asked[asked.size() - 2], HasSubstr("\"hub-hostnet0\""));
  EXPECT_THAT(asked[asked.size() - 1], HasSubstr("\"hostnet0\""));
  EXPECT_THAT(world.problems, IsEmpty());
}

TEST(RelayCards, CanBeAttachedAgain) {
  RelayWorld world;
  world.begin();
  for (int i = 0; i < 3; ++i) {
    EXPECT_THAT(world.attach("net0", "hostnet0"), Each(HasSubstr("return")));
    EXPECT_TRUE(world.qemu.hasLink("net0"));
    world.detach("hostnet0");
    EXPECT_FALSE(world.qemu.hasLink("net0"));
  }
  EXPECT_THAT(world.problems, IsEmpty());
}

TEST(RelayCards, ThatAreBoundAreRefused) {
  RelayWorld world;
  world.begin();
  world.attach("net0", "hostnet0");
  EXPECT_THAT(world.attach("net0", "hostnet1"),
              ElementsAre(done("getfd"), done("netdev"),
                          HasSubstr("card 'net0' is bound to netdev 'hostnet0'"), done("setlink")));
}

TEST(RelayCards, AreNotBoundToANetdevThatIsBound) {
  RelayWorld world;
  world.begin();
  world.attach("net0", "hostnet0");
  EXPECT_THAT(world.ask(R"({"execute":"netdev_set","arguments":{"nicid":"net1",)"
                        R"("netdevid":"hostnet0"},"id":"netdev"})"),
              ElementsAre(HasSubstr("netdev 'hostnet0' is bound to card 'net0'")));
  EXPECT_FALSE(world.qemu.hasAborted());
}

TEST(RelayCards, ThatTheGuestHasNotAreRefused) {
  RelayWorld world;
  world.begin();
  EXPECT_THAT(world.ask(R"({"execute":"netdev_set","arguments":{"nicid":"net7",)"
                        R"("netdevid":"hostnet0"},"id":"netdev"})"),
              ElementsAre(HasSubstr("the guest has no card 'net7'")));
}

TEST(RelayCards, AreFreeAfterQemuRefusedToBindThem) {
  RelayWorld world;
  world.begin();
  EXPECT_THAT(world.ask(R"({"execute":"netdev_set","arguments":{"nicid":"net0",)"
                        R"("netdevid":"hostnet0"},"id":"netdev"})"),
              ElementsAre(HasSubstr("netdev 'hostnet0' not found")));
  EXPECT_THAT(world.attach("net0", "hostnet0"), Each(HasSubstr("return")));
}

TEST(RelayCards, WhoseNetdevCannotBeMadeHearOfIt) {
  RelayWorld world;
  world.begin();
  world.qemu.refusalIs("netdev_add", "no room");
  EXPECT_THAT(
      world.attach("net0", "hostnet0"),
      ElementsAre(done("getfd"), HasSubstr("no room"), HasSubstr("not found"), done("setlink")));
}

TEST(RelayCards, AlwaysHearThatTheLinkWasSet) {
  RelayWorld world;
  world.begin();
  EXPECT_THAT(
      world.ask(
          R"({"execute":"set_link","arguments":{"name":"hostnet0","up":true},"id":"setlink"})"),
      ElementsAre(done("setlink")));
  EXPECT_THAT(world.problems, ElementsAre("set_link hostnet0: Device 'hostnet0' not found"));
}

TEST(RelayCards, AlwaysHearThatTheNetdevIsGone) {
  RelayWorld world;
  world.begin();
  EXPECT_THAT(world.ask(R"({"execute":"netdev_del","arguments":{"id":"hostnet0"},"id":"netdev"})"),
              ElementsAre(done("netdev")));
  EXPECT_THAT(world.problems, ElementsAre("netdev_del hostnet0: Device 'hostnet0' not found"));
}

TEST(RelayCards, AreNotGivenUpForWhatIsNoQmp) {
  RelayWorld world;
  world.begin();
  world.qemu.stop();
  EXPECT_THAT(world.attach("net0", "hostnet0"), IsEmpty());
  world.qemuSays("no");
  EXPECT_THAT(world.heard(), IsEmpty());
  world.qemuGoes();
  EXPECT_THAT(world.heard(),
              ElementsAre(done("getfd"), done("netdev"), done("netdev"), done("setlink")));
}

TEST(RelayCards, OfNamesWithQuotesStayWholeJson) {
  RelayWorld world({"n\"0"});
  world.begin();
  rt::Descriptors one;
  one.emplace_back(dup(STDERR_FILENO));
  world.ask(R"({"execute":"getfd","arguments":{"fdname":"f"},"id":"getfd"})", std::move(one));
  world.ask(
      R"({"execute":"netdev_add","arguments":{"type":"tap","fd":"f","id":"h\\\n"},"id":"netdev"})");
  EXPECT_THAT(world.ask(R"({"execute":"netdev_set","arguments":{"nicid":"n\"0",)"
                        R"("netdevid":"h\\\n"},"id":"netdev"})"),
              ElementsAre(done("netdev")));
  EXPECT_THAT(world.ask(R"({"execute":"set_link","arguments":{"name":"h\\\n","up":false},"id":1})"),
              ElementsAre("{\"return\": {}, \"id\": 1}\r\n"));
  EXPECT_FALSE(world.qemu.hasLink("n\"0"));
}

TEST(RelayCards, ThatWereNeverAttachedHaveNoCarrier) {
  RelayWorld world;
  world.begin();
  world.attach("net1", "hostnet1");
  EXPECT_THAT(world.ask(R"({ "execute": "cont","id": "cont" })"), ElementsAre(done("cont")));
  EXPECT_FALSE(world.qemu.hasLink("net0"));
  EXPECT_TRUE(world.qemu.hasLink("net1"));
  EXPECT_EQ(world.qemu.asked().back(), "{\"execute\":\"cont\"}\n");
  world.attach("net0", "hostnet0");
  EXPECT_TRUE(world.qemu.hasLink("net0"));
}

TEST(RelayCards, WhoseLinkCannotBeSetDoNotKeepTheGuestFromRunning) {
  RelayWorld world;
  world.begin();
  world.qemu.refusalIs("set_link", "no");
  EXPECT_THAT(world.ask(R"({ "execute": "cont","id": "cont" })"), ElementsAre(done("cont")));
}

// The line, as the daemon tells of it.

TEST(RelayCards, WhoseLineGoesHaveNoCarrierUntilItIsBack) {
  RelayWorld world;
  world.begin();
  world.attach("net0", "hostnet0");
  world.attach("net1", "hostnet1");
  world.lineIs("net0", false);
  EXPECT_FALSE(world.qemu.hasLink("net0"));
  EXPECT_TRUE(world.qemu.hasLink("net1"));
  world.lineIs("net0", true);
  EXPECT_TRUE(world.qemu.hasLink("net0"));
  EXPECT_THAT(world.problems, IsEmpty());
}

TEST(RelayCards, HaveACarrierOnlyWhereLineAndAgentHaveOne) {
  RelayWorld world;
  world.begin();
  world.lineIs("net0", false);
  world.attach("net0", "hostnet0");
  EXPECT_FALSE(world.qemu.hasLink("net0")) << "the agent's alone";
  world.lineIs("net0", true);
  EXPECT_TRUE(world.qemu.hasLink("net0"));
  world.detach("hostnet0");
  world.lineIs("net0", false);
  world.lineIs("net0", true);
  EXPECT_FALSE(world.qemu.hasLink("net0")) << "the line's alone";
}

TEST(RelayCards, WithoutALineHaveNoCarrierFromTheGuestsFirstMomentOn) {
  RelayWorld world;
  world.lineIs("net0", false);
  world.begin();
  EXPECT_FALSE(world.qemu.hasLink("net0"));
  world.attach("net0", "hostnet0");
  world.ask(R"({ "execute": "cont","id": "cont" })");
  EXPECT_FALSE(world.qemu.hasLink("net0"));
}

TEST(RelayCards, ThatWereNeverAttachedHaveNoCarrierWhateverTheirLineIs) {
  RelayWorld world;
  world.begin();
  world.ask(R"({ "execute": "cont","id": "cont" })");
  world.lineIs("net0", false);
  world.lineIs("net0", true);
  EXPECT_FALSE(world.qemu.hasLink("net0"));
}

TEST(RelayCards, AskQemuNothingWhereTheirLineIsAsItWas) {
  RelayWorld world;
  world.begin();
  world.attach("net0", "hostnet0");
  const size_t asked = world.qemu.asked().size();
  world.lineIs("net0", true);
  EXPECT_EQ(world.qemu.asked().size(), asked);
}

TEST(RelayCards, HaveTheLineOfTheEndOfQemusSilence) {
  RelayWorld world;
  world.begin();
  world.attach("net0", "hostnet0");
  world.qemu.stop();
  for (int i = 0; i < 1000; ++i) world.lineIs("net0", i % 2 == 1);
  world.lineIs("net0", false);
  const size_t asked = world.qemu.asked().size();
  world.pass(std::chrono::seconds(60));
  world.qemuGoes();
  EXPECT_FALSE(world.qemu.hasLink("net0"));
  EXPECT_LE(world.qemu.asked().size(), asked + 2);
}

TEST(RelayCards, WithoutALineHaveNoCarrierOfTheNextAgentEither) {
  RelayWorld world;
  world.begin();
  world.attach("net0", "hostnet0");
  world.lineIs("net0", false);
  world.disconnectAgent();
  world.adopt({{"net0", "net0"}, {"net1", "net1"}});
  world.connectAgent();
  world.heard();
  world.attach("net0", "hostnet0");
  EXPECT_FALSE(world.qemu.hasLink("net0"));
  world.lineIs("net0", true);
  EXPECT_TRUE(world.qemu.hasLink("net0"));
}

}  // namespace
}  // namespace shim
