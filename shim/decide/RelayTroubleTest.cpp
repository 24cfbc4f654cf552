// What the agent hears, and QEMU gets, when QEMU is silent or the agent goes.
#include <gmock/gmock.h>

#include "shim/decide/Relay.h"
#include "shim/fakes/RelayWorld.h"

namespace shim {
namespace {

using fakes::done;
using fakes::FakeQemu;
using fakes::queryStatus;
using fakes::RelayWorld;
using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using testing::UnorderedElementsAre;

constexpr char silence[] =
    "{\"id\": \"status\", \"error\": {\"class\": \"GenericError\", \"desc\": \"QEMU does not "
    "answer\"}}\r\n";

// A world whose QEMU has been silent for longer than it may.
class StalledQemu : public testing::Test {
 protected:
  StalledQemu() {
    world.begin();
    world.qemu.stop();
    world.ask(queryStatus);
    world.pass(seconds(4));
    world.heard();
  }
  // QEMU goes on; what it still holds of its netdevs, apart from the cards' own.
  std::vector<std::string> netdevsAfterwards() {
    world.qemuGoes();
    std::vector<std::string> netdevs;
    for (const auto& [id, peer] : world.qemu.netdevs())
      if (id != "hub-net0" && id != "hub-net1") netdevs.push_back(id);
    return netdevs;
  }

  RelayWorld world;
};

TEST(RelayTrouble, EndsAQemuThatDoesNotGreetIn30Seconds) {
  RelayWorld world;
  world.pass(milliseconds(29'999));
  EXPECT_THAT(world.kills, IsEmpty());
  world.pass(milliseconds(1));
  EXPECT_THAT(world.kills, ElementsAre("QEMU was not ready within 30 s"));
  world.pass(seconds(1'000));
  EXPECT_THAT(world.kills, SizeIs(1));
}

TEST(RelayTrouble, EndsAQemuThatGreetsAndThenIsSilent) {
  RelayWorld world;
  world.qemu.stop();
  world.qemuSays(FakeQemu::greeting());
  world.pass(seconds(30));
  EXPECT_THAT(world.kills, SizeIs(1));
}

TEST(RelayTrouble, EndsNoQemuThatHasGreeted) {
  RelayWorld world;
  world.begin();
  world.pass(seconds(100'000));
  EXPECT_THAT(world.kills, IsEmpty());
}

TEST(RelayTrouble, EndsAQemuThatLivesOnWithoutItsMonitor) {
  RelayWorld world;
  world.begin();
  world.relay.qemuClosed(world.now);
  world.pass(milliseconds(4'999));
  EXPECT_THAT(world.kills, IsEmpty());
  world.pass(milliseconds(1));
  EXPECT_THAT(world.kills, ElementsAre("QEMU closed its monitor but did not end"));
}

TEST(RelayTrouble, WaitsForNothingWhileNothingIsAsked) {
  RelayWorld world;
  world.begin();
  EXPECT_EQ(world.relay.deadline(), std::nullopt);
  world.ask(queryStatus);
  EXPECT_EQ(world.relay.deadline(), std::nullopt);
}

TEST(RelayTrouble, GivesAQueryAnErrorAfter4SecondsOfSilence) {
  RelayWorld world;
  world.begin();
  world.qemu.stop();
  EXPECT_THAT(world.ask(queryStatus), IsEmpty());
  world.pass(milliseconds(3'999));
  EXPECT_THAT(world.heard(), IsEmpty());
  world.pass(milliseconds(1));
  EXPECT_THAT(world.heard(), ElementsAre(silence));
}

TEST(RelayTrouble, GivesACardCommandAReturnAfter4SecondsOfSilence) {
  RelayWorld world;
  world.begin();
  world.attach("net0", "hostnet0");
  world.qemu.stop();
  EXPECT_THAT(
      world.ask(
          R"({"execute":"set_link","arguments":{"name":"hostnet0","up":false},"id":"setlink"})"),
      IsEmpty());
  world.pass(seconds(4));
  EXPECT_THAT(world.heard(), ElementsAre(done("setlink")));
}

TEST_F(StalledQemu, AnswersNoAnswerTwice) {
  world.qemuGoes();
  EXPECT_THAT(world.heard(), IsEmpty());
}

TEST_F(StalledQemu, AnswersAgainOnceItGoesOn) {
  world.qemuGoes();
  EXPECT_THAT(world.ask(queryStatus), ElementsAre(HasSubstr("\"running\": true")));
  EXPECT_THAT(world.log, Contains("QEMU answers again, after 4 s"));
}

TEST_F(StalledQemu, GetsNoQueriesHeapedUp) {
  for (int i = 0; i < 50; ++i) {
    world.ask(queryStatus);
    world.pass(seconds(5));
    EXPECT_THAT(world.heard(), ElementsAre(silence));
  }
  const size_t asked = world.qemu.asked().size();
  world.qemuGoes();
  EXPECT_EQ(world.qemu.asked().size(), asked);
}

TEST_F(StalledQemu, AnswersAQueryThatIsYetInTime) {
  world.ask(queryStatus);
  world.pass(seconds(3));
  world.qemuGoes();
  EXPECT_THAT(world.heard(), ElementsAre(HasSubstr("\"running\": true")));
}

TEST_F(StalledQemu, LetsCardCommandsBeAnsweredAtOnce) {
  EXPECT_THAT(world.attach("net0", "hostnet0"),
              ElementsAre(done("getfd"), done("netdev"), done("netdev"), done("setlink")));
}

TEST_F(StalledQemu, GetsItsCardsAttachedLaterInOrder) {
  world.attach("net0", "hostnet0");
  world.attach("net1", "hostnet1");
  EXPECT_THAT(netdevsAfterwards(),
              UnorderedElementsAre("hostnet0", "hub-hostnet0", "hostnet1", "hub-hostnet1"));
  EXPECT_THAT(world.problems, IsEmpty());
  EXPECT_THAT(world.heard(), Each(Not(HasSubstr("netdev"))));
}

TEST_F(StalledQemu, GetsNothingOfACardThatComesAndGoes) {
  const size_t asked = world.qemu.asked().size();
  for (int i = 0; i < 1'000; ++i) {
    EXPECT_THAT(world.attach("net0", "hostnet0"), SizeIs(4));
    EXPECT_THAT(world.detach("hostnet0"),
                ElementsAre(done("setlink"), done("closefd"), done("netdev")));
  }
  EXPECT_THAT(netdevsAfterwards(), IsEmpty());
  EXPECT_EQ(world.qemu.asked().size(), asked);
  EXPECT_EQ(world.qemu.descriptorsHeld(), 0U);
  EXPECT_THAT(world.problems, IsEmpty());
}

TEST_F(StalledQemu, ClosesTheDescriptorOfACardThatComesAndGoes) {
  fakes::Probe probe;
  rt::Descriptors one;
  one.push_back(std::move(probe.given));
  world.ask(R"({"execute":"getfd","arguments":{"fdname":"fd-h"},"id":"getfd"})", std::move(one));
  world.ask(
      R"({"execute":"netdev_add","arguments":{"type":"tap","fd":"fd-h","id":"h"},"id":"netdev"})");
  EXPECT_FALSE(probe.isClosed());
  world.ask(R"({"execute":"netdev_del","arguments":{"id":"h"},"id":"netdev"})");
  EXPECT_TRUE(probe.isClosed());
}

TEST(RelayTrouble, ClosesTheDescriptorThatQemuGotOfACardThatComesAndGoes) {
  RelayWorld world;
  world.begin();
  world.qemu.stop();
  world.attach("net0", "hostnet0");
  world.pass(seconds(4));
  EXPECT_THAT(world.heard(), SizeIs(4));
  world.detach("hostnet0");
  world.qemuGoes();
  EXPECT_EQ(world.qemu.descriptorsHeld(), 0U);
  EXPECT_THAT(world.qemu.netdevs(), SizeIs(2));
  EXPECT_THAT(world.problems, IsEmpty());
}

TEST(RelayTrouble, CarriesOutADetachmentAndTheAttachmentAfterIt) {
  RelayWorld world;
  world.begin();
  world.attach("net0", "hostnet0");
  world.qemu.stop();
  world.ask(queryStatus);
  world.pass(seconds(4));
  world.heard();
  // Away, back, away again and back again: of which the middle need not be.
  for (int i = 0; i < 2; ++i) {
    world.detach("hostnet0");
    EXPECT_THAT(world.attach("net0", "hostnet0"), SizeIs(4));
  }
  world.qemuGoes();
  EXPECT_THAT(world.qemu.netdevs(), Contains(Pair("hub-hostnet0", "hostnet0")));
  EXPECT_TRUE(world.qemu.hasLink("net0"));
  EXPECT_THAT(world.problems, IsEmpty());
  EXPECT_FALSE(world.qemu.hasAborted());
}

TEST_F(StalledQemu, MakesAProblemOfWhatFailsLater) {
  world.qemu.refusalIs("netdev_add", "no room");
  world.attach("net0", "hostnet0");
  world.qemuGoes();
  EXPECT_THAT(world.problems, ElementsAre("netdev_add hostnet0: no room",
                                          "netdev_set net0 hostnet0: netdev 'hostnet0' not found",
                                          "set_link hostnet0: Device 'hostnet0' not found"));
}

TEST_F(StalledQemu, IsNotGivenMoreThanItCanBeOwed) {
  for (int i = 0; i < 1'000; ++i) {
    const auto answer = world.ask(
        R"({"execute":"set_link","arguments":{"name":"hostnet0","up":true},"id":"setlink"})");
    EXPECT_THAT(answer, ElementsAre(done("setlink")));
  }
  EXPECT_THAT(world.problems, SizeIs(1'000 - 256));
  EXPECT_THAT(world.problems[0], "too much waits for QEMU, given up: set_link hostnet0");
}

TEST(RelayTrouble, AnswersForAllCardCommandsAtOnceWhenQemuIsSilent) {
  RelayWorld world;
  world.begin();
  world.qemu.stop();
  world.ask(R"({"execute":"closefd","arguments":{"fdname":"f"},"id":"closefd"})");
  world.pass(seconds(2));
  EXPECT_THAT(world.detach("hostnet0"), IsEmpty());
  world.pass(seconds(2));
  EXPECT_THAT(world.heard(),
              ElementsAre(done("closefd"), done("setlink"), done("closefd"), done("netdev")));
}

TEST_F(StalledQemu, HasItsTimeForWhatIsCarriedOutLater) {
  world.attach("net0", "hostnet0");
  world.pass(seconds(100));
  world.log.clear();
  world.qemuSays("{\"return\": {}}");  // it goes on for one answer only
  world.pass(milliseconds(3'999));
  EXPECT_THAT(world.log, ElementsAre("QEMU answers again, after 104 s"));
  world.pass(milliseconds(1));
  EXPECT_THAT(world.log, Contains("QEMU does not answer getfd fd-hostnet0"));
}

TEST_F(StalledQemu, StallsAgainOverWhatIsCarriedOutLater) {
  world.attach("net0", "hostnet0");
  const std::string late = "{\"return\": {}}";
  world.qemuSays(late);  // it goes on for one answer only
  world.pass(seconds(4));
  EXPECT_THAT(world.attach("net1", "hostnet1"), SizeIs(4));
}

// The agent.

TEST(RelayAgent, ThatComesAgainHearsNothingOfWhatWasAskedBefore) {
  RelayWorld world;
  world.begin();
  world.qemu.stop();
  world.ask(queryStatus);
  world.ask(R"({"execute": "cont", "id": "cont"})");
  world.attach("net0", "hostnet0");
  world.disconnectAgent();
  world.connectAgent();
  EXPECT_THAT(world.heard(), ElementsAre(FakeQemu::greeting() + "\r\n"));
  world.qemuGoes();
  EXPECT_THAT(world.heard(), IsEmpty());
}

TEST(RelayAgent, ThatGoesLeavesItsCardCommandsToBeCarriedOut) {
  RelayWorld world;
  world.begin();
  world.qemu.stop();
  world.attach("net0", "hostnet0");
  world.disconnectAgent();
  world.qemuGoes();
  EXPECT_THAT(world.qemu.netdevs(), Contains(Pair("hub-hostnet0", "hostnet0")));
}

TEST(RelayAgent, ThatGoesTakesItsQueriesAlong) {
  RelayWorld world;
  world.begin();
  world.qemu.stop();
  world.ask(queryStatus);
  world.ask(queryStatus);
  world.disconnectAgent();
  const size_t asked = world.qemu.asked().size();
  world.qemuGoes();
  EXPECT_EQ(world.qemu.asked().size(), asked);
}

TEST(RelayAgent, ThatAsksBeforeItIsGreetedIsAnsweredAfterwards) {
  RelayWorld world;
  world.connectAgent();
  EXPECT_THAT(world.ask(queryStatus), IsEmpty());
  world.qemuSays(FakeQemu::greeting());
  EXPECT_THAT(world.heard(),
              ElementsAre(FakeQemu::greeting() + "\r\n", HasSubstr("\"running\": true")));
}

TEST(RelayTrouble, StandsUntilTheCardIsAttachedAnew) {
  RelayWorld world;
  world.begin();
  world.qemu.refusalIs("netdev_add", "no room");
  world.attach("net0", "hostnet0");
  EXPECT_THAT(world.relay.standing(),
              ElementsAre(testing::Pair("hostnet0", "netdev_add hostnet0: no room")));
  world.detach("hostnet0");
  EXPECT_THAT(world.relay.standing(), testing::SizeIs(1));
  world.attach("net0", "hostnet0");
  EXPECT_THAT(world.relay.standing(), IsEmpty());
}

TEST(RelayTrouble, OfACardThatTheGuestHasNotStands) {
  RelayWorld world;
  world.begin();
  world.attach("net7", "hostnet7");
  EXPECT_THAT(world.relay.standing(), ElementsAre(testing::Pair("hostnet7", HasSubstr("net7"))));
}

TEST(RelayTrouble, OfASilentQemuStandsUntilItAnswers) {
  RelayWorld world;
  world.begin();
  world.qemu.stop();
  world.ask(queryStatus);
  world.pass(Duration(4'000));
  EXPECT_THAT(world.relay.standing(), ElementsAre(testing::Pair("", "QEMU does not answer")));
  world.qemuGoes();
  EXPECT_THAT(world.relay.standing(), IsEmpty());
}

}  // namespace
}  // namespace shim
