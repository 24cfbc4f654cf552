#include "ctl/fakes/VmctlFixture.h"
#include "runtime/base/Text.h"

namespace ctl {
namespace {

using fakes::Answer;
using testing::HasSubstr;
using testing::Not;

class EventVerb : public fakes::VmctlFixture {
 protected:
  EventVerb() {
    (void)setenv("TZ", "UTC", 1);
    tzset();
    putVm("web1", true);
  }
  // An event of so many seconds ago.
  void putEvent(uint64_t seq, const char* vm, uint64_t age, const char* more) {
    const uint64_t at = (now() - age) * 1000;
    put("event", "00000000000" + rt::toText(seq),
        R"({"seq":)" + rt::toText(seq) + R"(,"id":)" + rt::toText(seq) + R"(,"at":)" +
            rt::toText(at) + R"(,"first":)" + rt::toText(at) + R"(,"vm":")" + vm + "\"," + more +
            "}");
  }
  static constexpr uint64_t now() { return timeOfDay_ + 1000; }
  void putThree() {
    putEvent(1, "web1", 7'000,
             R"("kind":"config","reason":"changed","text":"memory 128 -> 140","by":"op1",)"
             R"("via":"vmctl set")");
    putEvent(2, "web2", 60, R"("kind":"state","reason":"running","text":"its guest runs")");
    putEvent(3, "web1", 1,
             R"("kind":"end","reason":"killed","text":"QEMU was killed","severity":"bad",)"
             R"("by":"unknown")");
  }
};

TEST_F(EventVerb, ShowsWhatHasHappenedTheNewestLast) {
  putThree();
  EXPECT_EQ(vmctl("events"), (Answer{0,
                                     "TIME      VM    WHAT     TEXT               BY\n"
                                     "20:33:20  web1  config   memory 128 -> 140  op1 (vmctl set)\n"
                                     "22:29:00  web2  running  its guest runs     -\n"
                                     "22:29:59  web1  ended    QEMU was killed    unknown\n",
                                     ""}));
}

TEST_F(EventVerb, OfOneVmAndSinceAMomentIsItsHistory) {
  putThree();
  const Answer answer = vmctl("history web1 --since 1h");
  EXPECT_EQ(answer.exit, 0);
  EXPECT_THAT(answer.out, Not(HasSubstr("memory")));
  EXPECT_THAT(answer.out, Not(HasSubstr("its guest runs")));
  EXPECT_THAT(answer.out, HasSubstr("QEMU was killed"));
  EXPECT_EQ(vmctl("history web1 --since tomorrow").exit, 2);
}

TEST_F(EventVerb, ShowsTheLastOfAllOrOfAVm) {
  putThree();
  EXPECT_EQ(vmctl("events -n 2").out, vmctl("events --since 1h").out);
  const Answer last = vmctl("history web1 --tail 1");
  EXPECT_THAT(last.out, HasSubstr("QEMU was killed"));
  EXPECT_THAT(last.out, Not(HasSubstr("memory")));
  EXPECT_EQ(vmctl("events -n 9").out, vmctl("events").out);
  EXPECT_EQ(vmctl("events -n 0"),
            (Answer{2, "", "vmctl: -n: '0' is refused: must be 1 or more\n"}));
}

TEST_F(EventVerb, KnowsTheHistoryOfAVmThatWasRemoved) {
  putThree();
  EXPECT_THAT(vmctl("history web2").out, HasSubstr("its guest runs"));
  EXPECT_EQ(vmctl("history web9").exit, 3);
}

TEST_F(EventVerb, SaysHowManyAreNotKept) {
  putThree();
  put("daemon", "vmagentd", R"({"eventsDropped":182,"eventsLostTo":1})");
  daemonListens_ = false;
  EXPECT_THAT(vmctl("events").err, HasSubstr("182 older events are not kept"));
}

TEST_F(EventVerb, ResumesBehindANumber) {
  putThree();
  const Answer answer = vmctl("events --after 2 -o json");
  EXPECT_THAT(answer.out, HasSubstr(R"("op":"event","seq":3,"event":{"seq":3,"id":3,"at":)"));
  EXPECT_THAT(answer.out, HasSubstr(R"("by":"unknown","via":null})"));
  EXPECT_THAT(answer.out, Not(HasSubstr(R"("seq":2)")));
  EXPECT_EQ(vmctl("events --after 3").out, "TIME  VM  WHAT  TEXT  BY\n");
  EXPECT_EQ(vmctl("events --after soon").exit, 2);
}

TEST_F(EventVerb, SaysWhatIsLostAndShowsAllThereIs) {
  putThree();
  daemonListens_ = false;
  put("daemon", "vmagentd", R"({"eventsDropped":2,"eventsLostTo":2})");
  const Answer answer = vmctl("events -o json --after 1");
  EXPECT_THAT(answer.out, HasSubstr(R"("op":"lost","reason":"not-kept","from":2,"to":2})"));
  EXPECT_THAT(answer.out, HasSubstr(R"("seq":1)"));
  EXPECT_THAT(vmctl("events --after 1").err, HasSubstr("events behind 1 are not all kept"));
}

TEST_F(EventVerb, SaysThatANumberIsNotThisTablesAndShowsAllThereIs) {
  putThree();
  daemonListens_ = false;
  put("daemon", "vmagentd", R"({"eventsStore":"kept"})");
  for (const auto& [after, reason, text] :
       {std::tuple{"another:2", "other-store", "'another' is another database's"},
        std::tuple{"kept:9", "not-yet", "no event has number 9 yet: the newest is 3"}}) {
    const Answer answer = vmctl("events -o json --after " + std::string(after));
    EXPECT_THAT(answer.out, HasSubstr("\"store\":\"kept\",\"op\":\"lost\",\"reason\":\"" +
                                      std::string(reason) + "\",\"from\":null,\"to\":null}"));
    EXPECT_THAT(answer.out, HasSubstr(R"("seq":1)"));
    EXPECT_THAT(vmctl("events --after " + std::string(after)).err, HasSubstr(text));
  }
  EXPECT_THAT(vmctl("events -o json --after kept:2").out, Not(HasSubstr("lost")));
}

TEST_F(EventVerb, FollowsWhatComes) {
  putThree();
  onWait([&] {
    putEvent(4, "web1", 0, R"("kind":"guest","reason":"reset","text":"the guest reset itself")");
  });
  onWait([&] { closeOutput(); });
  const Answer answer = vmctl("events -f -o json");
  const size_t synced = answer.out.find(R"("op":"synced")");
  EXPECT_LT(answer.out.find(R"("seq":3)"), synced);
  EXPECT_GT(answer.out.find(R"("op":"event","seq":4)"), synced);
  EXPECT_NE(answer.out.find(R"("op":"event","seq":4)"), std::string::npos);
}

TEST_F(EventVerb, FollowedShowsARowThatGrowsOnceInTenSeconds) {
  const auto putReset = [&](uint64_t seq) {
    put("event", "000000000004",
        R"({"seq":)" + rt::toText(seq) +
            R"(,"id":4,"at":1700001000000,"first":1700001000000,)"
            R"("count":2,"vm":"web1","kind":"guest","reason":"reset","text":"again"})");
  };
  for (uint64_t seq = 5; seq < 9; ++seq) onWait([=] { putReset(seq); });
  onWait([&] { closeOutput(); });
  const std::string out = vmctl("events -f -o json").out;
  EXPECT_NE(out.find(R"("op":"event","seq":5)"), std::string::npos);
  EXPECT_EQ(out.find(R"("op":"event","seq":6)"), std::string::npos);
}

TEST_F(EventVerb, ShowsARowOfSeveralAsOne) {
  put("event", "000000000004",
      R"({"seq":17,"id":4,"at":1700001000000,"first":1700000991000,"count":14,"vm":"web1",)"
      R"("kind":"card","reason":"no-carrier","text":"nic00: no carrier"})");
  EXPECT_THAT(vmctl("events").out, HasSubstr("nic00: no carrier, ×14 in 9s"));
}

}  // namespace
}  // namespace ctl
