#include <gmock/gmock.h>

#include <algorithm>

#include "guest/EventWords.h"
#include "shim/decide/GuestEvents.h"

namespace shim {
namespace {

namespace word = guest::event;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

std::optional<GuestEvent> eventOf(const std::string& text) {
  return eventFrom(qmp::sayingFrom(text).value());
}

struct Case {
  std::string said;
  std::string_view kind;
  std::string reason;
  std::string text;
  std::optional<bool> byGuest;
};

class GuestEventsOfQemu : public testing::TestWithParam<Case> {};

TEST_P(GuestEventsOfQemu, IsAnEventOfTheGuests) {
  const auto event = eventOf(GetParam().said);
  ASSERT_TRUE(event);
  EXPECT_EQ(event->kind, GetParam().kind);
  EXPECT_EQ(event->reason, GetParam().reason);
  EXPECT_EQ(event->text, GetParam().text);
  EXPECT_EQ(event->byGuest, GetParam().byGuest);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, GuestEventsOfQemu,
    testing::Values(
        Case{R"({"event": "STOP"})", word::paused, "", "", {}},
        Case{R"({"event": "RESUME"})", word::resumed, "", "", {}},
        Case{R"({"event": "RESET", "data": {"guest": true, "reason": "guest-reset"}})", word::reset,
             "guest-reset", "", true},
        Case{R"({"event": "SUSPEND"})", word::suspended, "", "", {}},
        Case{R"({"event": "SUSPEND_DISK"})", word::suspended, "", "", {}},
        Case{R"({"event": "WAKEUP"})", word::wokenUp, "", "", {}},
        Case{R"({"event": "SHUTDOWN", "data": {"guest": false, "reason": "host-qmp-quit"}})",
             word::shutDown, "host-qmp-quit", "", false},
        Case{R"({"event": "GUEST_PANICKED", "data": {"action": "poweroff"}})",
             word::panicked,
             "poweroff",
             "",
             {}},
        Case{R"({"event": "WATCHDOG", "data": {"action": "reset"}})",
             word::watchdog,
             "reset",
             "",
             {}},
        Case{R"({"event": "BLOCK_IO_ERROR", "data": {"device": "ide0-hd0", "operation": "write",
                 "action": "stop", "reason": "No space left on device"}})",
             word::diskError,
             "stop",
             "No space left on device",
             {}}));

TEST(GuestEvents, ThatTellNothingOfTheGuestAreNone) {
  EXPECT_FALSE(eventOf(R"({"event": "NIC_RX_FILTER_CHANGED", "data": {"name": "nic0"}})"));
  EXPECT_FALSE(eventOf(R"({"event": 7})"));
  EXPECT_FALSE(eventOf(R"({"return": {}})"));
}

TEST(EventLines, HaveWhatIsKnownAndANumberEach) {
  EventLines lines(4711);
  EXPECT_EQ(lines.line({word::started, {}, "/usr/bin/qemu", {}, {{"pid", 12}}}, {1000, 50}),
            "{\"run\":4711,\"n\":1,\"at\":1000,\"up\":50,\"kind\":\"started\","
            "\"text\":\"/usr/bin/qemu\",\"pid\":12}\n");
  EXPECT_EQ(lines.line({word::shutDown, "guest-shutdown", {}, true, {}}, {1001, 51}),
            "{\"run\":4711,\"n\":2,\"at\":1001,\"up\":51,\"kind\":\"shut-down\","
            "\"reason\":\"guest-shutdown\",\"byGuest\":true}\n");
}

TEST(EventLines, AreOneLineThatCanBeReadWhateverQemuSays) {
  EventLines lines(1);
  const std::string line =
      lines.line({word::diskError, "\x1b[2J\n\"", std::string(1000, 'x') + "\xff", {}, {}}, {1, 1});
  EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1);
  EXPECT_THAT(line, HasSubstr(R"("reason":"\\x1b[2J\\x0a\"")"));
  EXPECT_LT(line.size(), 300U);
  EXPECT_FALSE(qmp::requestFrom(line)) << "an object, but no request";
}

TEST(EventLines, TellAResetOnceThatQemuTellsTwice) {
  EventLines lines(1);
  const GuestEvent byHost{word::reset, "host-qmp-system-reset", {}, false, {}};
  const GuestEvent byGuest{word::reset, "guest-reset", {}, true, {}};
  EXPECT_THAT(lines.line(byHost, {0, 5000}), HasSubstr("host-qmp-system-reset"));
  EXPECT_THAT(lines.line(byGuest, {0, 5999}), IsEmpty());
  EXPECT_THAT(lines.line(byGuest, {0, 6000}), HasSubstr("guest-reset"));
}

TEST(EventLines, TellSoMuchOfWhatAGuestRepeatsAndHowMuchMoreThereWas) {
  EventLines lines(1);
  const GuestEvent error{word::diskError, "write", {}, {}, {}};
  int told = 0;
  for (int i = 0; i < 1000; ++i) told += lines.line(error, {0, 7000}).empty() ? 0 : 1;
  EXPECT_EQ(told, EventLines::atOnce);
  EXPECT_THAT(lines.line(error, {0, 7000 + EventLines::refill - 1}), IsEmpty());
  EXPECT_THAT(lines.line(error, {0, 7000 + EventLines::refill}), EndsWith(",\"skipped\":981}\n"));
  EXPECT_THAT(lines.line(error, {0, 7000 + 2 * EventLines::refill}), Not(HasSubstr("skipped")));
}

TEST(EventLines, OfOneKindTakeNoRoomFromAnother) {
  EventLines lines(1);
  for (int i = 0; i < 1000; ++i) (void)lines.line({word::paused, {}, {}, {}, {}}, {0, 0});
  EXPECT_THAT(lines.line({word::silent, {}, {}, {}, {}}, {0, 0}), Not(IsEmpty()));
}

TEST(EventLines, TellTheEndOfAStateWhoseBeginWasTold) {
  for (const auto& [begin, end] : {std::pair{word::silent, word::answers},
                                   {word::paused, word::resumed},
                                   {word::suspended, word::wokenUp},
                                   {word::diskError, word::resumed}}) {
    EventLines lines(1);
    (void)lines.line({word::resumed, {}, {}, {}, {}}, {0, 0});
    std::string last;
    for (int i = 0; i < 1000; ++i)
      for (const auto kind : {begin, end})
        if (const std::string line = lines.line({kind, {}, {}, {}, {}}, {0, 0}); !line.empty())
          last = line;
    EXPECT_THAT(last, HasSubstr("\"" + std::string(end) + "\""));
  }
}

TEST(EventLines, TellThatTheGuestIsLetRunAndNoOtherEndOfNothing) {
  EventLines lines(1);
  EXPECT_THAT(lines.line({word::resumed, {}, {}, {}, {}}, {0, 0}), Not(IsEmpty()));
  EXPECT_THAT(lines.line({word::resumed, {}, {}, {}, {}}, {0, 0}), IsEmpty());
  EXPECT_THAT(lines.line({word::answers, {}, {}, {}, {}}, {0, 0}), IsEmpty());
}

TEST(EventLines, TellAStateThatLastsOnceTheyMay) {
  EventLines lines(1);
  const GuestEvent wish{word::wished, "pause", {}, {}, {{"uid", 4321}}};
  for (int i = 0; i < 1000; ++i)
    for (const GuestEvent& event : {wish, GuestEvent{word::paused, {}, {}, {}, {}},
                                    GuestEvent{word::resumed, {}, {}, {}, {}}})
      (void)lines.line(event, {0, 7000});
  EXPECT_FALSE(lines.deadline()) << "it runs, as is told";
  EXPECT_THAT(lines.line(wish, {1, 7001}), IsEmpty());
  EXPECT_THAT(lines.line({word::paused, {}, {}, {}, {}}, {2, 7002}), IsEmpty());
  ASSERT_EQ(lines.deadline(), 7000 + EventLines::refill);
  EXPECT_THAT(lines.timePassed(*lines.deadline() - 1), IsEmpty());
  const std::string told = lines.timePassed(*lines.deadline());
  EXPECT_THAT(told, HasSubstr(R"("at":1,"up":7001,"kind":"wished","reason":"pause","uid":4321)"));
  EXPECT_THAT(told, HasSubstr(R"("at":2,"up":7002,"kind":"paused")"));
  EXPECT_LT(told.find("wished"), told.find("paused")) << "first who, and then what comes of it";
  EXPECT_FALSE(lines.deadline());
  EXPECT_THAT(lines.timePassed(99'000), IsEmpty());
  EXPECT_THAT(lines.line({word::resumed, {}, {}, {}, {}}, {0, 99'000}), Not(IsEmpty()));
}

TEST(EventLines, OfOneWishTakeNoRoomFromAnother) {
  EventLines lines(1);
  for (int i = 0; i < 1000; ++i) (void)lines.line({word::wished, "nmi", {}, {}, {}}, {0, 0});
  EXPECT_THAT(lines.line({word::wished, "pause", {}, {}, {}}, {0, 0}), Not(IsEmpty()));
}

TEST(EventLines, AlwaysTellAnEnd) {
  EventLines lines(1);
  for (int i = 0; i < 1000; ++i)
    ASSERT_THAT(lines.line({word::end, {}, {}, {}, {{"exit", 0}}}, {0, 0}), Not(IsEmpty()));
}

}  // namespace
}  // namespace shim
