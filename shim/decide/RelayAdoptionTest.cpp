// Another agent takes the place of one that is gone.
#include <gmock/gmock.h>

#include "shim/decide/Relay.h"
#include "shim/fakes/RelayWorld.h"

namespace shim {
namespace {

using fakes::done;
using fakes::FakeQemu;
using fakes::Probe;
using fakes::queryStatus;
using fakes::RelayWorld;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Key;
using testing::Pair;
using testing::UnorderedElementsAre;

const std::map<std::string, std::string> sameNames{{"net0", "net0"}, {"net1", "net1"}};

void getFd(RelayWorld& world, const std::string& name, rt::Descriptors descriptors) {
  world.ask(R"({"execute":"getfd","arguments":{"fdname":")" + name + R"("},"id":"getfd"})",
            std::move(descriptors));
}

TEST(RelayAdoption, GreetsTheNewAgentAsTheFirst) {
  RelayWorld world;
  world.begin();
  world.disconnectAgent();
  world.adopt(sameNames);
  world.connectAgent();
  EXPECT_THAT(world.heard(), ElementsAre(FakeQemu::greeting() + "\r\n"));
  EXPECT_THAT(world.ask(R"({ "execute": "qmp_capabilities","id": "enter" })"),
              ElementsAre(done("enter")));
}

// The guest's cards are served by what the old agent attached until the new one attaches its own.

const std::string letRun = R"({ "execute": "cont","id": "cont" })";

class RelayAdoptionCards : public testing::Test {
 protected:
  // A guest that runs, with netdevs of an agent that is gone at both of its cards.
  RelayAdoptionCards() {
    world.begin();
    world.attach("net0", "hostnet0");
    world.attach("net1", "hostnet1");
    world.ask(letRun);
  }
  ~RelayAdoptionCards() override {
    EXPECT_THAT(world.qemu.stuck(), IsEmpty());
    EXPECT_FALSE(world.qemu.hasAborted());
    EXPECT_THAT(world.problems, IsEmpty());
  }
  void adopt(const std::map<std::string, std::string>& names = sameNames) {
    world.disconnectAgent();
    world.adopt(names);
    world.connectAgent();
    world.heard();
    asked = world.qemu.asked().size();
  }
  // The requests to QEMU since the adoption that lower a card's line.
  std::vector<std::string> lowered() const {
    std::vector<std::string> found;
    for (size_t i = asked; i < world.qemu.asked().size(); ++i)
      if (world.qemu.asked()[i].find("\"up\":false") != std::string::npos)
        found.push_back(world.qemu.asked()[i]);
    return found;
  }

  RelayWorld world;
  size_t asked = 0;
};

TEST_F(RelayAdoptionCards, KeepWhatTheyHave) {
  adopt();
  EXPECT_EQ(world.qemu.asked().size(), asked);
  EXPECT_THAT(world.qemu.netdevs(), Contains(Pair("hub-hostnet0", "hostnet0")));
  EXPECT_THAT(world.qemu.netdevs(), Contains(Pair("hub-hostnet1", "hostnet1")));
}

TEST_F(RelayAdoptionCards, AreExchangedOneByOneWithTheirLinesUp) {
  adopt();
  EXPECT_THAT(world.attach("net0", "hostnet0"), Each(HasSubstr("return")));
  EXPECT_THAT(world.qemu.netdevs(), Contains(Pair("hub-hostnet1", "hostnet1")));
  EXPECT_THAT(world.attach("net1", "hostnet1"), Each(HasSubstr("return")));
  world.ask(letRun);
  EXPECT_THAT(lowered(), IsEmpty());
  EXPECT_TRUE(world.qemu.hasLink("net0"));
  EXPECT_TRUE(world.qemu.hasLink("net1"));
  EXPECT_THAT(world.qemu.netdevs(),
              UnorderedElementsAre(Pair("hub-net0", "net0"), Pair("hub-net1", "net1"),
                                   Pair("hostnet0", ""), Pair("hub-hostnet0", "hostnet0"),
                                   Pair("hostnet1", ""), Pair("hub-hostnet1", "hostnet1")));
}

TEST_F(RelayAdoptionCards, AreExchangedForNetdevsOfOtherNames) {
  adopt();
  EXPECT_THAT(world.attach("net0", "other0"), Each(HasSubstr("return")));
  EXPECT_THAT(world.attach("net1", "other1"), Each(HasSubstr("return")));
  world.ask(letRun);
  EXPECT_THAT(lowered(), IsEmpty());
  EXPECT_THAT(world.qemu.netdevs(),
              UnorderedElementsAre(Pair("hub-net0", "net0"), Pair("hub-net1", "net1"),
                                   Pair("other0", ""), Pair("hub-other0", "other0"),
                                   Pair("other1", ""), Pair("hub-other1", "other1")));
}

TEST_F(RelayAdoptionCards, AreExchangedWhenTheirNetdevsSwapNames) {
  adopt({{"net0", "net1"}, {"net1", "net0"}});
  EXPECT_THAT(world.attach("net0", "hostnet0"), Each(HasSubstr("return")));
  EXPECT_THAT(world.attach("net1", "hostnet1"), Each(HasSubstr("return")));
  world.ask(letRun);
  EXPECT_THAT(lowered(), IsEmpty());
  EXPECT_THAT(world.qemu.asked(), Contains(HasSubstr(R"("hubid":1,"id":"hub-hostnet0")")));
  EXPECT_EQ(world.qemu.netdevs().size(), 6U);
}

TEST_F(RelayAdoptionCards,
       ThatTheNewAgentDoesNotAttachLoseTheirNetdevAndCarrierWhenTheGuestIsLetRun) {
  adopt();
  EXPECT_THAT(world.attach("net1", "hostnet1"), Each(HasSubstr("return")));
  world.ask(letRun);
  EXPECT_FALSE(world.qemu.hasLink("net0"));
  EXPECT_TRUE(world.qemu.hasLink("net1"));
  EXPECT_THAT(world.qemu.netdevs(),
              UnorderedElementsAre(Pair("hub-net0", "net0"), Pair("hub-net1", "net1"),
                                   Pair("hostnet1", ""), Pair("hub-hostnet1", "hostnet1")));
}

TEST_F(RelayAdoptionCards, WhoseNewNetdevIsRefusedLoseTheirCarrierWhenTheGuestIsLetRun) {
  adopt();
  getFd(world, "fd-hostnet0", [] {
    rt::Descriptors one;
    one.push_back(Probe().given);
    return one;
  }());
  world.ask(R"({"execute":"netdev_add","arguments":{"type":"tap","fd":"other","id":"hostnet0"},)"
            R"("id":"netdev"})");
  EXPECT_TRUE(world.qemu.hasLink("net0")) << "it might be tried again";
  world.ask(letRun);
  EXPECT_FALSE(world.qemu.hasLink("net0"));
  EXPECT_THAT(world.qemu.netdevs(), testing::Not(Contains(Key("sink-net0"))));
  EXPECT_FALSE(world.qemu.hasLink("net1"));
}

TEST_F(RelayAdoptionCards, AreServedThroughAnAgentThatEndsHalfWay) {
  adopt();
  world.ask(R"({"execute":"netdev_add","arguments":{"type":"tap","fd":"no","id":"hostnet0"},)"
            R"("id":"netdev"})");
  EXPECT_THAT(world.qemu.netdevs(), Contains(Key("sink-net0")));
  adopt();
  EXPECT_THAT(world.qemu.netdevs(), Contains(Key("sink-net0")));
  EXPECT_THAT(world.attach("net0", "hostnet0"), Each(HasSubstr("return")));
  EXPECT_THAT(world.attach("net1", "hostnet1"), Each(HasSubstr("return")));
  world.ask(letRun);
  EXPECT_THAT(lowered(), IsEmpty());
  EXPECT_EQ(world.qemu.netdevs().size(), 6U) << "and no sink";
}

TEST_F(RelayAdoptionCards, AreNotKeptForEverWhenQemuStandsStillMeanwhile) {
  world.disconnectAgent();
  world.qemu.stop();
  world.adopt(sameNames);
  world.connectAgent();
  world.heard();
  world.ask(queryStatus);  // what QEMU is silent on
  EXPECT_THAT(world.ask(letRun), IsEmpty());
  world.pass(Patience().answer + Duration(1'000));
  EXPECT_THAT(world.heard(), testing::SizeIs(2)) << "errors";
  world.qemuGoes();
  EXPECT_THAT(world.heard(), IsEmpty());
  EXPECT_THAT(world.qemu.netdevs(),
              UnorderedElementsAre(Pair("hub-net0", "net0"), Pair("hub-net1", "net1")));
  EXPECT_FALSE(world.qemu.hasLink("net0"));
  EXPECT_FALSE(world.qemu.hasLink("net1"));
}

TEST_F(RelayAdoptionCards, ThatQemuWillNotBindLoseTheirCarrierWhenTheGuestIsLetRun) {
  adopt();
  rt::Descriptors one;
  one.push_back(Probe().given);
  getFd(world, "f", std::move(one));
  world.ask(
      R"({"execute":"netdev_add","arguments":{"type":"tap","fd":"f","id":"other"},"id":"netdev"})");
  // Of the requests that bind it, the one that makes way for it comes first.
  world.ask(R"({"execute":"netdev_del","arguments":{"id":"hostnet0"},"id":"netdev"})");
  EXPECT_THAT(world.qemu.netdevs(), Contains(Key("sink-net0")));
  world.qemu.refusalIs("netdev_add", "no room");
  EXPECT_THAT(
      world.ask(R"({"execute":"netdev_set","arguments":{"nicid":"net0","netdevid":"other"},)"
                R"("id":"netdev"})"),
      ElementsAre(HasSubstr("no room")));
  EXPECT_TRUE(world.qemu.hasLink("net0"));
  world.ask(letRun);
  EXPECT_FALSE(world.qemu.hasLink("net0"));
  EXPECT_THAT(world.qemu.netdevs(), testing::Not(Contains(Key("sink-net0"))));
}

TEST_F(RelayAdoptionCards, CanBeDetachedAsAlways) {
  adopt();
  world.attach("net0", "hostnet0");
  world.attach("net1", "hostnet1");
  world.ask(letRun);
  EXPECT_THAT(world.detach("hostnet0"),
              ElementsAre(done("setlink"), HasSubstr("closefd"), done("netdev")));
  EXPECT_FALSE(world.qemu.hasLink("net0"));
  EXPECT_EQ(world.qemu.netdevs().count("hostnet0"), 0U);
}

TEST(RelayAdoption, RemovesANetdevThatWasNotBoundYet) {
  RelayWorld world;
  world.begin();
  Probe probe;
  rt::Descriptors one;
  one.push_back(std::move(probe.given));
  getFd(world, "f", std::move(one));
  world.ask(
      R"({"execute":"netdev_add","arguments":{"type":"tap","fd":"f","id":"h"},"id":"netdev"})");
  world.adopt(sameNames);
  EXPECT_THAT(world.qemu.netdevs(), testing::Not(Contains(Key("h"))));
  EXPECT_TRUE(probe.isClosed());
  EXPECT_THAT(world.problems, IsEmpty());
}

TEST(RelayAdoption, ClosesADescriptorThatIsNoNetdevsYet) {
  RelayWorld world;
  world.begin();
  Probe probe;
  rt::Descriptors one;
  one.push_back(std::move(probe.given));
  getFd(world, "f", std::move(one));
  EXPECT_FALSE(probe.isClosed());
  world.adopt(sameNames);
  EXPECT_TRUE(probe.isClosed());
  EXPECT_EQ(world.qemu.descriptorsHeld(), 0U);
}

TEST(RelayAdoption, LeavesNothingToRemoveOfWhatIsGone) {
  RelayWorld world;
  world.begin();
  world.attach("net0", "hostnet0");
  world.detach("hostnet0");
  world.qemu.refusalIs("netdev_add", "no room");
  world.attach("net1", "hostnet1");
  world.ask(R"({"execute":"closefd","arguments":{"fdname":"fd-hostnet1"},"id":"closefd"})");
  const size_t asked = world.qemu.asked().size();
  world.adopt(sameNames);
  EXPECT_EQ(world.qemu.asked().size(), asked);
}

TEST(RelayAdoption, LetsTheNewAgentAttachTheCards) {
  RelayWorld world;
  world.begin();
  world.attach("net0", "hostnet0");
  world.adopt(sameNames);
  world.connectAgent();
  world.heard();
  EXPECT_THAT(world.attach("net0", "hostnet0"), Each(HasSubstr("return")));
  EXPECT_TRUE(world.qemu.hasLink("net0"));
}

TEST(RelayAdoption, KnowsTheCardsByTheNewAgentsNames) {
  RelayWorld world;
  world.begin();
  world.adopt({{"net0", "net1"}, {"net1", "net0"}});
  world.connectAgent();
  world.heard();
  EXPECT_THAT(world.attach("net0", "hostnet0"), Each(HasSubstr("return")));
  EXPECT_THAT(world.qemu.asked(),
              Contains(HasSubstr("\"hubid\":1,\"id\":\"hub-hostnet0\",\"netdev\":\"hostnet0\"")));
  world.ask(R"({"execute":"set_link","arguments":{"name":"hostnet0","up":false},"id":"setlink"})");
  EXPECT_FALSE(world.qemu.hasLink("net1"));
  EXPECT_TRUE(world.qemu.hasLink("net0"));
  world.ask(R"({"execute":"set_link","arguments":{"name":"net1","up":false},"id":"setlink"})");
  EXPECT_FALSE(world.qemu.hasLink("net0"));
}

TEST(RelayAdoption, RefusesACardThatTheGuestHasNot) {
  RelayWorld world;
  world.begin();
  world.adopt({{"net1", "net0"}});
  world.connectAgent();
  world.heard();
  EXPECT_THAT(
      world.attach("net0", "hostnet0"),
      ElementsAre(done("getfd"), done("netdev"),
                  HasSubstr("the guest has no card 'net0': restart needed"), done("setlink")));
  EXPECT_THAT(world.relay.standing(), ElementsAre(Pair("hostnet0", HasSubstr("restart needed"))));
}

TEST(RelayAdoption, ForgetsWhatTheOldAgentAskedFor) {
  RelayWorld world;
  world.begin();
  world.qemu.stop();
  world.ask(queryStatus);
  world.ask(queryStatus);
  Probe probe;
  rt::Descriptors one;
  one.push_back(std::move(probe.given));
  getFd(world, "f", std::move(one));
  world.adopt(sameNames);
  world.connectAgent();
  world.heard();
  EXPECT_TRUE(probe.isClosed());
  world.qemuGoes();
  EXPECT_THAT(world.heard(), IsEmpty());
}

TEST(RelayAdoption, RemovesWhatQemuMakesOnlyLater) {
  RelayWorld world;
  world.begin();
  world.ask(R"({"execute":"getfd","arguments":{"fdname":"x"},"id":"getfd"})");
  Probe probe;
  rt::Descriptors one;
  one.push_back(std::move(probe.given));
  getFd(world, "f", std::move(one));
  world.qemu.stop();
  world.ask(
      R"({"execute":"netdev_add","arguments":{"type":"tap","fd":"f","id":"h"},"id":"netdev"})");
  world.adopt(sameNames);
  EXPECT_THAT(world.qemu.netdevs(), testing::Not(Contains(Key("h"))));
  world.qemuGoes();
  EXPECT_THAT(world.qemu.netdevs(), testing::Not(Contains(Key("h"))));
  EXPECT_TRUE(probe.isClosed());
}

TEST(RelayAdoption, ClearsUpBeforeTheNewAgentsRequests) {
  RelayWorld world;
  world.begin();
  world.attach("net0", "hostnet0");
  world.attach("net1", "hostnet1");
  world.qemu.stop();
  world.adopt(sameNames);
  world.connectAgent();
  world.heard();
  EXPECT_THAT(world.attach("net0", "hostnet0"), IsEmpty());
  world.qemuGoes();
  EXPECT_THAT(world.heard(), Each(HasSubstr("return")));
  EXPECT_TRUE(world.qemu.hasLink("net0"));
  EXPECT_THAT(world.qemu.netdevs(), Contains(Key("hub-hostnet0")));
  EXPECT_FALSE(world.qemu.hasAborted());
}

TEST(RelayAdoption, OfAGuestThatIsNotReadyWaitsUntilItIs) {
  RelayWorld world;
  world.adopt(sameNames);
  world.connectAgent();
  EXPECT_THAT(world.heard(), IsEmpty());
  world.qemuSays(FakeQemu::greeting());
  EXPECT_THAT(world.heard(), ElementsAre(FakeQemu::greeting() + "\r\n"));
}

TEST(RelayAdoption, ForgetsTheProblemsOfTheOldAgentsCards) {
  RelayWorld world;
  world.begin();
  world.qemu.refusalIs("netdev_add", "no room");
  world.attach("net0", "hostnet0");
  world.adopt(sameNames);
  EXPECT_THAT(world.relay.standing(), IsEmpty());
}

TEST(RelayAdoption, CanComeAgainAndAgain) {
  RelayWorld world;
  world.begin();
  for (int i = 0; i < 5; ++i) {
    EXPECT_THAT(world.attach("net0", "hostnet0"), Each(HasSubstr("return")));
    world.disconnectAgent();
    world.adopt(sameNames);
    world.connectAgent();
    world.heard();
  }
  EXPECT_THAT(world.qemu.netdevs(),
              UnorderedElementsAre(Pair("hub-net0", "net0"), Pair("hub-net1", "net1"),
                                   Pair("hostnet0", ""), Pair("hub-hostnet0", "hostnet0")));
  EXPECT_THAT(world.problems, IsEmpty());
}

}  // namespace
}  // namespace shim
