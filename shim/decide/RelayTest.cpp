// What the agent and QEMU hear of each other while both are well.
#include <gmock/gmock.h>

#include "shim/decide/Relay.h"
#include "shim/fakes/RelayWorld.h"

namespace shim {
namespace {

using fakes::done;
using fakes::FakeQemu;
using fakes::queryStatus;
using fakes::RelayWorld;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char isRunning[] =
    "{\"return\": {\"status\": \"running\", \"singlestep\": false, \"running\": true}, "
    "\"id\": \"status\"}\r\n";

TEST(Relay, WithholdsTheGreetingUntilQemuHasGreetedAndNegotiated) {
  RelayWorld world;
  world.connectAgent();
  EXPECT_THAT(world.heard(), IsEmpty());
  world.qemu.stop();
  world.qemuSays(FakeQemu::greeting());
  EXPECT_THAT(world.heard(), IsEmpty());
  world.qemuGoes();
  EXPECT_THAT(world.heard(), ElementsAre(FakeQemu::greeting() + "\r\n"));
}

TEST(Relay, WithholdsTheGreetingFromAnAgentThatComesWhileQemuNegotiates) {
  RelayWorld world;
  world.qemu.stop();
  world.qemuSays(FakeQemu::greeting());
  world.connectAgent();
  EXPECT_THAT(world.heard(), IsEmpty());
  world.qemuGoes();
  EXPECT_THAT(world.heard(), ElementsAre(FakeQemu::greeting() + "\r\n"));
}

TEST(Relay, GreetsAnAgentThatComesLate) {
  RelayWorld world;
  world.qemuSays(FakeQemu::greeting());
  EXPECT_THAT(world.heard(), IsEmpty());
  world.connectAgent();
  EXPECT_THAT(world.heard(), ElementsAre(FakeQemu::greeting() + "\r\n"));
}

TEST(Relay, GreetsEachAgentOnce) {
  RelayWorld world;
  world.begin();
  world.qemuSays(FakeQemu::greeting());
  EXPECT_THAT(world.heard(), IsEmpty());
  world.disconnectAgent();
  world.connectAgent();
  EXPECT_THAT(world.heard(), ElementsAre(FakeQemu::greeting() + "\r\n"));
}

TEST(Relay, NegotiatesWithQemuOnceAndAnswersEachAgentItself) {
  RelayWorld world;
  world.begin();
  const std::string enter = R"({ "execute": "qmp_capabilities","id": "enter" })";
  EXPECT_THAT(world.ask(enter), ElementsAre(done("enter")));
  world.disconnectAgent();
  world.connectAgent();
  world.heard();
  EXPECT_THAT(world.ask(enter), ElementsAre(done("enter")));
  EXPECT_THAT(world.qemu.asked(), ElementsAre("{\"execute\":\"qmp_capabilities\",\"id\":0}\n"));
}

TEST(Relay, ForwardsRequestsCompactlyAndWithoutIds) {
  RelayWorld world(std::vector<std::string>{});
  world.begin();
  world.ask(R"({ "execute": "cont", "id": "cont" })");
  world.ask(R"({ "execute": "closefd","arguments": {"fdname": "fd-x"},"id": "closefd" })");
  EXPECT_THAT(world.qemu.asked(),
              ElementsAre(HasSubstr("qmp_capabilities"), "{\"execute\":\"cont\"}\n",
                          "{\"execute\":\"closefd\",\"arguments\":{\"fdname\":\"fd-x\"}}\n"));
}

// Which of two answers it was that could not be read, nobody knows.
TEST(Relay, AsksWithIdsOfItsOwnOnceQemuHasSaidWhatIsNoMessage) {
  RelayWorld world;
  world.begin();
  world.qemu.stop();
  world.ask(queryStatus);
  world.qemuSays("{nonsense");
  EXPECT_THAT(world.heard(), ElementsAre(HasSubstr("QEMU's answer is no QMP")));
  world.ask(queryStatus);
  EXPECT_EQ(world.qemu.asked().back(), "{\"execute\":\"query-status\",\"id\":1}\n");
  world.qemuGoes();  // answers both
  EXPECT_THAT(world.heard(), ElementsAre(isRunning));
}

TEST(Relay, AnswersWithTheIdOfTheRequest) {
  RelayWorld world;
  world.begin();
  EXPECT_THAT(world.ask(queryStatus), ElementsAre(isRunning));
  EXPECT_THAT(world.ask(R"({"execute": "cont", "id": {"a": [1, null]}})"),
              ElementsAre("{\"return\": {}, \"id\": {\"a\": [1, null]}}\r\n"));
}

TEST(Relay, PassesOnARefusalWithTheIdOfTheRequest) {
  RelayWorld world;
  world.begin();
  EXPECT_THAT(
      world.ask(R"({"execute": "closefd", "arguments": {"fdname": "f"}, "id": "closefd"})"),
      ElementsAre("{\"id\": \"closefd\", \"error\": {\"class\": \"GenericError\", \"desc\": "
                  "\"File descriptor named 'f' not found\"}}\r\n"));
  EXPECT_THAT(world.problems, IsEmpty());
}

TEST(Relay, NeverPassesOnAnAnswerWithoutAnId) {
  RelayWorld world;
  world.begin();
  EXPECT_THAT(world.ask(R"({"execute": "query-status"})"), IsEmpty());
  world.qemuSays(R"({"return": {}})");
  world.qemuSays(R"({"error": {"class": "GenericError", "desc": "what?"}})");
  EXPECT_THAT(world.heard(), IsEmpty());
}

TEST(Relay, NeverPassesOnAnAnswerThatNobodyAwaits) {
  RelayWorld world;
  world.begin();
  world.ask(queryStatus);
  world.qemuSays(R"({"return": {}, "id": 1})");
  world.qemuSays(R"({"return": {}, "id": 77})");
  world.qemuSays(R"({"return": {}, "id": "status"})");
  EXPECT_THAT(world.heard(), IsEmpty());
}

TEST(Relay, TakesNoOtherAnswerForTheOneThatIsAwaited) {
  RelayWorld world;
  world.begin();
  world.qemu.stop();
  world.ask(queryStatus);
  world.qemuSays(R"({"return": {}, "id": 0})");
  world.qemuSays(R"({"return": {}, "id": 77})");
  EXPECT_THAT(world.heard(), IsEmpty());
  world.qemuGoes();
  EXPECT_THAT(world.heard(), ElementsAre(isRunning));
}

TEST(Relay, PassesOnNoEvents) {
  RelayWorld world;
  world.begin();
  world.qemuSays(R"({"timestamp": {"seconds": 1, "microseconds": 2}, "event": "RESUME"})");
  EXPECT_THAT(world.heard(), IsEmpty());
}

std::vector<std::string> kindsOf(const std::vector<GuestEvent>& events) {
  std::vector<std::string> kinds;
  for (const GuestEvent& event : events) kinds.emplace_back(event.kind);
  return kinds;
}

TEST(Relay, TellsWhichQemuIsReadyAndWhatHappensToItsGuest) {
  RelayWorld world;
  world.begin();
  ASSERT_THAT(kindsOf(world.events), ElementsAre("ready"));
  EXPECT_EQ(world.events[0].text, "7.2.22");
  world.qemuSays(R"({"event": "RESUME"})");
  world.qemuSays(R"({"event": "DEVICE_DELETED", "data": {"path": "x"}})");
  world.qemuSays(R"({"event": "SHUTDOWN", "data": {"guest": true, "reason": "guest-shutdown"}})");
  EXPECT_THAT(kindsOf(world.events), ElementsAre("ready", "resumed", "shut-down"));
}

TEST(Relay, TellsWhenQemuFallsSilentAndWhenItAnswersAgain) {
  RelayWorld world;
  world.begin();
  world.events.clear();
  world.qemu.stop();
  world.ask(queryStatus);
  world.pass(std::chrono::milliseconds(3'999));
  EXPECT_THAT(world.events, IsEmpty());
  world.pass(std::chrono::milliseconds(1));
  EXPECT_THAT(kindsOf(world.events), ElementsAre("silent"));
  world.qemuGoes();
  EXPECT_THAT(kindsOf(world.events), ElementsAre("silent", "answers"));
}

TEST(Relay, PassesOnNothingThatIsNoMessage) {
  RelayWorld world;
  world.begin();
  for (const char* const text : {"{", "[1]", "no", "{}", "{\"return\":", "\x01\xff"})
    world.qemuSays(text);
  EXPECT_THAT(world.heard(), IsEmpty());
}

TEST(Relay, LogsSomeOfWhatNobodyUnderstands) {
  RelayWorld world;
  world.begin();
  for (int i = 0; i < 1'000; ++i) world.qemuSays("no");
  EXPECT_EQ(world.log.size(), 10U);
}

TEST(Relay, AsksQemuOneThingAtATime) {
  RelayWorld world(std::vector<std::string>{});
  world.begin();
  world.qemu.stop();
  world.ask(queryStatus);
  world.ask(R"({"execute": "cont", "id": "cont"})");
  EXPECT_EQ(world.qemu.asked().size(), 2U);
  world.qemuGoes();
  EXPECT_EQ(world.qemu.asked().size(), 3U);
  EXPECT_THAT(world.heard(), ElementsAre(isRunning, done("cont")));
}

TEST(Relay, ShowsItsOwnEndsOfTheCharacterDevices) {
  RelayWorld world;
  world.begin();
  EXPECT_THAT(
      world.ask(R"({ "execute": "query-chardev","id": "chardev" })"),
      ElementsAre("{\"return\": [{\"frontend-open\": true, \"filename\": \"unix:/m,server=on\", "
                  "\"label\": \"monitor\"}, {\"frontend-open\": true, \"filename\": "
                  "\"pty:/dev/pts/7\", \"label\": \"serial0\"}], \"id\": \"chardev\"}\r\n"));
}

TEST(Relay, AnswersWithAnErrorInPlaceOfAnAnswerThatIsTooLong) {
  RelayWorld world;
  world.begin();
  world.qemu.stop();
  world.ask(queryStatus);
  world.qemuSays("{\"return\": \"" + std::string(70'000, 'x') + "\"}");
  EXPECT_THAT(world.heard(),
              ElementsAre("{\"id\": \"status\", \"error\": {\"class\": \"GenericError\", "
                          "\"desc\": \"QEMU's answer is too long\"}}\r\n"));
}

TEST(Relay, AnswersWithAnErrorInPlaceOfAnAnswerThatCouldNotBeKept) {
  RelayWorld world;
  world.begin();
  world.qemu.stop();
  world.ask(queryStatus);
  const Actions actions = world.relay.qemuSaidTooMuch(world.now);
  EXPECT_THAT(actions.toAgent, HasSubstr("\"id\": \"status\", \"error\""));
}

TEST(Relay, GoesOnAfterAnAnswerThatIsNoQmp) {
  RelayWorld world;
  world.begin();
  world.qemu.stop();
  world.ask(queryStatus);
  world.qemuSays("{\"return\": \"\\u0000\", \"id\": 1}");
  EXPECT_THAT(world.heard(), ElementsAre(HasSubstr("QEMU's answer is no QMP")));
  world.qemuGoes();
  EXPECT_THAT(world.ask(queryStatus), ElementsAre(isRunning));
}

TEST(Relay, LetsTheAgentSendWhatIsNoRequest) {
  RelayWorld world;
  world.begin();
  for (const char* const text : {"{", "[]", "{\"execute\": 1}", "\xff"})
    EXPECT_THAT(world.ask(text), IsEmpty());
  EXPECT_THAT(world.ask(queryStatus), ElementsAre(isRunning));
}

// Descriptors.

TEST(RelayDescriptors, GoAlongWithTheirRequest) {
  RelayWorld world;
  world.begin();
  rt::Descriptors one;
  one.emplace_back(dup(STDERR_FILENO));
  EXPECT_THAT(world.ask(R"({"execute": "getfd", "arguments": {"fdname": "f"}, "id": "getfd"})",
                        std::move(one)),
              ElementsAre(done("getfd")));
  EXPECT_EQ(world.qemu.descriptorsHeld(), 1U);
}

TEST(RelayDescriptors, OfOtherRequestsAreClosed) {
  RelayWorld world;
  world.begin();
  fakes::Probe probe;
  rt::Descriptors one;
  one.push_back(std::move(probe.given));
  world.ask(queryStatus, std::move(one));
  EXPECT_TRUE(probe.isClosed());
}

TEST(RelayDescriptors, BeyondTheFirstAreClosed) {
  RelayWorld world;
  world.begin();
  fakes::Probe first;
  fakes::Probe second;
  rt::Descriptors two;
  two.push_back(std::move(first.given));
  two.push_back(std::move(second.given));
  world.ask(R"({"execute": "getfd", "arguments": {"fdname": "f"}, "id": "getfd"})", std::move(two));
  EXPECT_FALSE(first.isClosed());
  EXPECT_TRUE(second.isClosed());
}

TEST(RelayDescriptors, OfWhatIsNoRequestAreClosed) {
  RelayWorld world;
  world.begin();
  fakes::Probe probe;
  rt::Descriptors one;
  one.push_back(std::move(probe.given));
  world.ask("{", std::move(one));
  EXPECT_TRUE(probe.isClosed());
}

// The end.

TEST(RelayEnd, IsAskedForPastEverythingElse) {
  RelayWorld world;
  world.begin();
  world.qemu.stop();
  world.ask(queryStatus);
  world.ask(queryStatus);
  EXPECT_TRUE(world.relay.isReady());
  const Actions actions = world.relay.quit();
  ASSERT_EQ(actions.toQemu.size(), 1U);
  EXPECT_THAT(actions.toQemu[0].text, EndsWith("{\"execute\":\"quit\",\"id\":1}\n"));
}

TEST(RelayEnd, CannotBeAskedForBeforeQemuIsReady) {
  RelayWorld world;
  EXPECT_FALSE(world.relay.isReady());
}

TEST(RelayEnd, CannotBeAskedForOnceTheMonitorIsClosed) {
  RelayWorld world;
  world.begin();
  world.relay.qemuClosed(world.now);
  EXPECT_FALSE(world.relay.isReady());
}

TEST(Relay, KnowsWhetherTheGuestHasRun) {
  RelayWorld world;
  world.begin();
  world.ask(queryStatus);
  EXPECT_FALSE(world.relay.guestHasRun());
  world.ask(R"({"execute": "cont", "id": "cont"})");
  EXPECT_TRUE(world.relay.guestHasRun());
}

TEST(Relay, PressesThePowerButtonWithoutTheAgent) {
  RelayWorld world;
  world.begin();
  world.qemu.stop();
  world.ask(queryStatus);
  const Actions actions = world.relay.powerDown();
  ASSERT_EQ(actions.toQemu.size(), 1U);
  EXPECT_EQ(actions.toQemu[0].text, "{\"execute\":\"system_powerdown\",\"id\":1}\n");
  world.qemuSays(R"({"return": {}, "id": 1})");
  EXPECT_THAT(world.heard(), IsEmpty());
}

}  // namespace
}  // namespace shim
