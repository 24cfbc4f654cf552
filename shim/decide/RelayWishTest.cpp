// What operators want of a guest, beside what its agent asks.
#include <gmock/gmock.h>

#include <algorithm>

#include "shim/fakes/RelayWorld.h"

namespace shim {
namespace {

using fakes::Probe;
using fakes::RelayWorld;
using std::chrono::seconds;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;

constexpr char cont[] = R"({ "execute": "cont","id": "cont" })";
constexpr char contDone[] = "{\"return\": {}, \"id\": \"cont\"}\r\n";
constexpr char queryStatus[] = R"({ "execute": "query-status","id": "status" })";

bool isInterrupt(const std::string& request) {
  return request.find("inject-nmi") != std::string::npos;
}

class RelayWish : public testing::Test {
 protected:
  RelayWish() { world.begin(); }
  void letRun() { EXPECT_THAT(world.ask(cont), ElementsAre(contDone)); }
  // What came of wishes, as "1" or "1: REFUSAL".
  std::vector<std::string> outcomes() { return world.takeOutcomes(); }
  const std::string& last() const { return world.qemu.asked().back(); }

  RelayWorld world;
};

TEST_F(RelayWish, IsCarriedOutByQemuAndToldWhenItIs) {
  letRun();
  world.qemu.stop();
  world.wish({Wish::Kind::pause, {}, {}});
  EXPECT_THAT(outcomes(), IsEmpty());
  EXPECT_THAT(last(), HasSubstr("\"stop\""));
  world.qemuGoes();
  EXPECT_THAT(outcomes(), ElementsAre("1"));
  EXPECT_THAT(world.heard(), IsEmpty()) << "the agent is not told";
}

TEST_F(RelayWish, IsAskedForInQemusWords) {
  letRun();
  world.wish({Wish::Kind::resume, {}, {}});
  EXPECT_THAT(last(), HasSubstr("\"cont\""));
  world.wish({Wish::Kind::reset, {}, {}});
  EXPECT_THAT(last(), HasSubstr("\"system_reset\""));
  world.wish({Wish::Kind::interrupt, {}, {}});
  EXPECT_THAT(last(), HasSubstr("\"inject-nmi\""));
  world.wish({Wish::Kind::keys, {"ctrl", "delete"}, {}});
  EXPECT_THAT(last(), HasSubstr(R"("send-key","arguments":{"keys":[{"type":"qcode","data":"ctrl"},)"
                                R"({"type":"qcode","data":"delete"}]})"));
  EXPECT_THAT(outcomes(), ElementsAre("1", "2", "3", "4"));
}

TEST_F(RelayWish, ForAPictureHandsQemuWhereToWriteItAndTakesItBack) {
  Probe picture;
  Wish wish{Wish::Kind::picture, {}, {}};
  wish.picture.push_back(std::move(picture.given));
  world.wish(std::move(wish));
  EXPECT_THAT(world.qemu.asked(),
              Contains(HasSubstr(R"("filename":"/dev/fdset/1001","format":"png")")));
  EXPECT_THAT(last(), HasSubstr(R"("remove-fd","arguments":{"fdset-id":1001})"));
  EXPECT_THAT(outcomes(), ElementsAre("1"));
  EXPECT_TRUE(picture.isClosed());
}

TEST_F(RelayWish, ForAPictureOfAGuestThatStandsStillIsTakenBackOnceItRuns) {
  letRun();
  world.qemuSays(R"({"event": "RESUME"})");
  world.qemuSays(R"({"event": "STOP"})");
  EXPECT_TRUE(world.relay.stillness());
  Probe picture;
  Wish wish{Wish::Kind::picture, {}, {}};
  wish.picture.push_back(std::move(picture.given));
  world.wish(std::move(wish));
  EXPECT_THAT(outcomes(), ElementsAre("1"));
  world.qemuSays(R"({"event": "RESUME"})");
  EXPECT_THAT(last(), HasSubstr(R"("remove-fd","arguments":{"fdset-id":1001})"));
  EXPECT_THAT(std::count_if(world.qemu.asked().begin(), world.qemu.asked().end(),
                            [&](const auto& each) { return each.find("remove-fd") != each.npos; }),
              2);
  letRun();
  EXPECT_THAT(last(), HasSubstr("\"cont\"")) << "the answer is nobody's";
}

TEST_F(RelayWish, ThatQemuRefusesIsToldInItsWords) {
  letRun();
  world.qemu.refusalIs("send-key", "no such key");
  world.wish({Wish::Kind::keys, {"any"}, {}});
  EXPECT_THAT(outcomes(), ElementsAre("1: no such key"));
}

TEST_F(RelayWish, WaitsForTheAgentsRequestsBeforeIt) {
  letRun();
  world.qemu.stop();
  EXPECT_THAT(world.ask(queryStatus), IsEmpty());
  world.wish({Wish::Kind::reset, {}, {}});
  EXPECT_THAT(last(), HasSubstr("query-status"));
  world.qemuGoes();
  EXPECT_THAT(world.heard(), ElementsAre(HasSubstr("\"status\"")));
  EXPECT_THAT(outcomes(), ElementsAre("1"));
}

TEST_F(RelayWish, OfAnyNumberTakesNoPlaceOfTheAgents) {
  letRun();
  world.qemu.stop();
  for (int i = 0; i < 1000; ++i) world.wish({Wish::Kind::interrupt, {}, {}});
  EXPECT_THAT(outcomes(), Each(HasSubstr("too much waits")));
  world.attach("net0", "hostnet0");
  world.qemuGoes();
  EXPECT_THAT(world.heard(), Each(Not(HasSubstr("error"))));
  EXPECT_THAT(world.problems, IsEmpty());
  EXPECT_THAT(world.relay.standing(), IsEmpty());
  EXPECT_THAT(world.qemu.netdevs(), Contains(Pair("hub-hostnet0", "hostnet0")));
  const auto& asked = world.qemu.asked();
  const auto first = std::find_if(asked.begin(), asked.end(), isInterrupt);
  ASSERT_NE(first, asked.end());
  EXPECT_THAT(*(first + 1), HasSubstr("getfd")) << "only what QEMU has been asked goes before it";
}

TEST_F(RelayWish, IsRefusedForAGuestThatWasNotLetRun) {
  for (const auto kind :
       {Wish::Kind::pause, Wish::Kind::resume, Wish::Kind::reset, Wish::Kind::interrupt})
    world.wish({kind, {}, {}});
  EXPECT_THAT(outcomes(), Each(HasSubstr("has not begun to run")));
  EXPECT_THAT(world.qemu.asked(), Not(Contains(HasSubstr("system_reset"))));
}

TEST_F(RelayWish, IsRefusedAtOnceByAQemuThatStandsStill) {
  letRun();
  world.qemu.stop();
  world.ask(queryStatus);
  world.pass(seconds(5));
  world.wish({Wish::Kind::pause, {}, {}});
  EXPECT_THAT(outcomes(), ElementsAre("1: QEMU does not answer"));
}

TEST_F(RelayWish, IsGivenUpOnceWhenQemuStandsStillOverIt) {
  letRun();
  world.qemu.stop();
  world.wish({Wish::Kind::reset, {}, {}});
  world.wish({Wish::Kind::pause, {}, {}});
  world.pass(seconds(5));
  EXPECT_THAT(outcomes(), ElementsAre(HasSubstr("1: QEMU does not answer"),
                                      HasSubstr("2: QEMU does not answer")));
  world.qemuGoes();
  EXPECT_THAT(outcomes(), IsEmpty());
  EXPECT_THAT(world.qemu.asked(), Not(Contains(HasSubstr("\"stop\""))))
      << "what was not asked for yet is not done any more";
}

TEST_F(RelayWish, ToPauseHoldsOverTheNextAgent) {
  letRun();
  world.wish({Wish::Kind::pause, {}, {}});
  world.adopt({{"net0", "net0"}, {"net1", "net1"}});
  world.connectAgent();
  world.heard();
  letRun();
  EXPECT_THAT(last(), HasSubstr("\"stop\"")) << "it is not the agent's to let it run";
  world.wish({Wish::Kind::resume, {}, {}});
  EXPECT_THAT(last(), HasSubstr("\"cont\""));
  letRun();
  EXPECT_THAT(last(), HasSubstr("\"cont\""));
}

TEST_F(RelayWish, ToPauseThatQemuRefusesHoldsNobody) {
  letRun();
  world.qemu.refusalIs("stop", "not now");
  world.wish({Wish::Kind::pause, {}, {}});
  EXPECT_THAT(outcomes(), ElementsAre("1: not now"));
  letRun();
  EXPECT_THAT(last(), HasSubstr("\"cont\""));
}

TEST_F(RelayWish, ToResumeThatQemuRefusesLeavesAGuestHeld) {
  letRun();
  world.wish({Wish::Kind::pause, {}, {}});
  world.qemu.refusalIs("cont", "not now");
  world.wish({Wish::Kind::resume, {}, {}});
  letRun();
  EXPECT_THAT(last(), HasSubstr("\"stop\""));
}

TEST_F(RelayWish, ToPauseIsOverBeforeThePowerButtonIsPressed) {
  letRun();
  world.wish({Wish::Kind::pause, {}, {}});
  world.powerDown();
  const auto& asked = world.qemu.asked();
  EXPECT_THAT(asked[asked.size() - 2], HasSubstr("\"cont\""));
  EXPECT_THAT(last(), HasSubstr("\"system_powerdown\""));
  world.powerDown();
  EXPECT_EQ(std::count_if(asked.begin(), asked.end(),
                          [](const auto& each) { return each.find("\"cont\"") != each.npos; }),
            2)
      << "once by the agent";
}

TEST_F(RelayWish, ToResetKeepsAGuestPaused) {
  letRun();
  world.wish({Wish::Kind::pause, {}, {}});
  world.wish({Wish::Kind::reset, {}, {}});
  letRun();
  EXPECT_THAT(last(), HasSubstr("\"stop\""));
}

TEST_F(RelayWish, OutlivesTheAgentBesideWhichItWasMade) {
  letRun();
  world.qemu.stop();
  world.ask(queryStatus);
  world.wish({Wish::Kind::reset, {}, {}});
  world.disconnectAgent();
  world.adopt({{"net0", "net0"}, {"net1", "net1"}});
  world.qemuGoes();
  EXPECT_THAT(outcomes(), ElementsAre("1"));
}

}  // namespace
}  // namespace shim
