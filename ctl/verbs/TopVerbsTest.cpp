// What guests take, again and again.
#include "ctl/fakes/VmctlFixture.h"
#include "ctl/line/Json.h"
#include "runtime/base/Text.h"

namespace ctl {
namespace {

using fakes::Answer;
using testing::HasSubstr;
using testing::Not;

class TopVerb : public fakes::VmctlFixture {
 protected:
  TopVerb() {
    daemonSays_ = R"("guestsGroup":"/g","memoryCap":2048)";
    machine_.texts["/proc/stat"] = "cpu  1 2\ncpu0 1 2\ncpu1 1 2\nintr 5\n";
    putVm("off", false);
    putOff("off");
    putGuest("web1", 4711);
  }
  void putGuest(const std::string& name, int pid) {
    putVm(name, true);
    put("vmProcess", name,
        R"({"process":"running","pid":5,"actual":"running","severity":"ok","qemuPid":)" +
            rt::toText(pid) + R"(,"startedAt":1700000940})");
    usedIs(name, 1'000'000);
  }
  void usedIs(const std::string& name, uint64_t microseconds) {
    const std::string group = "/g/vm-" + name + ".256";
    machine_.texts[group + "/cpu.stat"] = "usage_usec " + std::to_string(microseconds) + "\n";
    machine_.texts[group + "/memory.current"] = "10485760\n";
  }
  void endOf(const std::string& name) {
    machine_.texts.erase("/g/vm-" + name + ".256/cpu.stat");
    machine_.texts.erase("/g/vm-" + name + ".256/memory.current");
  }
  static std::vector<JsonValue> documentsOf(const std::string& out) {
    std::vector<JsonValue> documents;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);)
      documents.push_back(JsonValue::parse(line).value());
    return documents;
  }
  static std::string usedIn(const JsonValue& document, size_t guest = 0) {
    return document.member("guests")
        ->elements()
        .at(guest)
        .member("cpu")
        ->member("used")
        ->dump()
        .str();
  }
};

TEST_F(TopVerb, ShowsWhatTheGuestsThatRunTakeInAnInterval) {
  onWait([&] { usedIs("web1", 1'500'000); });
  EXPECT_EQ(vmctl("top -n 1"),
            (Answer{0,
                    "1 guest: 0.25 of 2 processors, 10 of 2,048 MiB\n"
                    "NAME  ACTUAL   UP     CPU%         MEM  RX/s  TX/s  RD/s  WR/s  DROP\n"
                    "web1  running  1m02s  25.0         10M     -     -     -     -     -\n",
                    ""}));
}

TEST_F(TopVerb, InJsonBeginsAtOnceAndHasRatesFromTheSecondOn) {
  onWait([&] { usedIs("web1", 1'500'000); });
  const Answer answer = vmctl("top -n 2 -o json --interval 0.5");
  EXPECT_EQ(answer.exit, 0);
  const auto documents = documentsOf(answer.out);
  ASSERT_EQ(documents.size(), 2U);
  EXPECT_EQ(usedIn(documents[0]), "null");
  EXPECT_EQ(usedIn(documents[1]), "1.0");
  EXPECT_EQ(*documents[1].number("atMs") - *documents[0].number("atMs"), 500);
}

TEST_F(TopVerb, SeesGuestsComeAndGo) {
  onWait([&] { putGuest("web2", 12); });
  onWait([&] { endOf("web1"); });
  onWait([&] { putOff("web1"); });
  const auto documents = documentsOf(vmctl("top -n 4 -o json").out);
  ASSERT_EQ(documents.size(), 4U);
  EXPECT_EQ(documents[0].member("guests")->elements().size(), 1U);
  EXPECT_EQ(documents[1].member("guests")->elements().size(), 2U);
  EXPECT_EQ(usedIn(documents[2], 0), "null");  // web1, of which the daemon has not heard yet
  EXPECT_EQ(usedIn(documents[2], 1), "0.0");
  ASSERT_EQ(documents[3].member("guests")->elements().size(), 1U);
  EXPECT_EQ(documents[3].member("guests")->elements()[0].text("name"), "web2");
}

TEST_F(TopVerb, OfAGuestThatWasStartedAnewHasNoRate) {
  onWait([&] { putGuest("web1", 4712), usedIs("web1", 2'000'000); });
  const auto documents = documentsOf(vmctl("top -n 2 -o json").out);
  EXPECT_EQ(usedIn(documents.at(1)), "null");
}

// Without a shim, the process is QEMU's; with one, it is the shim's.
TEST_F(TopVerb, CountsTheProcessThatNoShimKeeps) {
  put("vmProcess", "web1", R"({"process":"running","pid":5,"actual":"running"})");
  endOf("web1");
  machine_.texts["/proc/5/stat"] = "5 (q) S 1 1 1 0 -1 4 1 2 3 4 100 0 0 0 10 -10 4 0 7 4\n";
  const auto isUnknown = [&] {
    const auto document = documentsOf(vmctl("top -n 1 -o json").out).at(0);
    return document.member("guests")->elements().at(0).member("cpu")->member("usedUs")->dump() ==
           "null";
  };
  EXPECT_TRUE(isUnknown());
  machine_.accessErrors["/run/vmagent/vm/web1/shim.sock"] = ENOENT;
  EXPECT_FALSE(isUnknown());
}

TEST_F(TopVerb, ShowsThoseThatAreNamed) {
  putGuest("web2", 12);
  EXPECT_THAT(vmctl("top web2 -n 1").out, Not(HasSubstr("web1")));
  EXPECT_EQ(vmctl("top web9 -n 1").exit, 3);
}

TEST_F(TopVerb, IsOneScreenUntilItIsLeft) {
  isTerminal_ = inIsTerminal_ = true;
  keys_ = std::string("\0x\0q", 4);
  EXPECT_EQ(vmctl("top"), (Answer{0, "", ""}));
  ASSERT_EQ(pictures_.size(), 3U);
  EXPECT_THAT(pictures_[0], HasSubstr("q quits\n"));
  EXPECT_THAT(pictures_[0], HasSubstr("    -         10M"));
  EXPECT_THAT(pictures_[1], HasSubstr("0.0         10M"));
}

TEST_F(TopVerb, EndsWhenNobodyReadsIt) {
  onWait([&] { closeOutput(); });
  EXPECT_EQ(vmctl("top -o json").exit, 1);
  EXPECT_EQ(waits_, 1);
}

TEST_F(TopVerb, SaysThatNoDaemonRuns) {
  daemonRuns_ = false;
  const Answer answer = vmctl("top -n 1");
  EXPECT_THAT(answer.err, HasSubstr("vmagentd is not running"));
  EXPECT_THAT(answer.out, HasSubstr("web1"));
  EXPECT_EQ(documentsOf(vmctl("top -n 1 -o json").out).at(0).boolean("stale"), true);
  endOf("web1");
  EXPECT_THAT(vmctl("top -n 1").out, Not(HasSubstr("web1")));
}

TEST_F(TopVerb, OfAMachineThatNeverHadADaemonIsEmpty) {
  hasStatus_ = false;
  daemonRuns_ = false;
  daemonListens_ = false;
  EXPECT_EQ(documentsOf(vmctl("top -n 2 -o json").out).at(1).member("guests")->dump(), "[]");
}

TEST_F(TopVerb, RefusesTimesThatAreNone) {
  for (const char* const words : {"-n 0", "-n x", "--interval 0", "--interval 1e9", "--interval x"})
    EXPECT_EQ(vmctl(std::string("top ") + words).exit, 2) << words;
}

}  // namespace
}  // namespace ctl
