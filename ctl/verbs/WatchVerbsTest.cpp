#include <regex>

#include "ctl/fakes/VmctlFixture.h"

namespace ctl {
namespace {

using fakes::Answer;

constexpr const char* config =
    R"("config":{"enabled":false,"diskImage":"/images/web.iso","memory":256,"vncPort":0,)"
    R"("vnicConfig":{}},"format":null)";
constexpr const char* running =
    R"("status":{"enabled":true,"state":"Running","consolePtyPath":"/dev/pts/4","cmdStatusStr":""},)"
    R"("process":{"process":"running","pid":4711,"restarts":0})";
constexpr const char* nothing =
    R"("status":null,"process":{"process":"none","pid":0,"restarts":0})";

class WatchVerb : public fakes::VmctlFixture {
 protected:
  static std::string stateOf(const std::string& status, const std::string& wanted = "stopped") {
    const bool runs = status == running;
    return "\"wanted\":\"" + wanted + "\"," +
           (runs ? R"("actual":"running","severity":"ok","since":1700000940,)"
                 : R"("actual":null,"severity":null,"since":null,)") +
           R"("reasons":[],"next":{"kind":"none","at":null,"text":null,"short":null,)" +
           R"("command":null},"end":null,"attempt":0,"nextAt":null,"stopDeadline":null,)" +
           R"("pid":null,"startedAt":null,"qemuVersion":null,"resets":0,"cards":[],)";
  }
  static std::string put(const std::string& name, const std::string& status) {
    return R"({"version":1,"op":"put","vm":{"name":")" + name + "\"," + stateOf(status) + config +
           "," + status + ",\"problem\":null}}\n";
  }
  static std::string synced() { return "{\"version\":1,\"op\":\"synced\"}\n"; }
  static std::string beat() { return "{\"version\":1,\"op\":\"beat\"}\n"; }
  // Without what each line has of its moment.
  Answer watched(const std::string& command = "watch -o json") {
    Answer answer = vmctl(command);
    static const std::regex moment(R"rx("at":\d+,"store":"[^"]+","seq":\d+,)rx");
    answer.out = std::regex_replace(answer.out, moment, "");
    return answer;
  }
  void endAfterwards() {
    onWait([this] { closeOutput(); });
  }
};

TEST_F(WatchVerb, SaysWhenAndOfWhichMomentEachLineIs) {
  putVm("web1", false);
  onWait([&] { putRunning("web1"); });
  endAfterwards();
  const std::string out = vmctl("watch -o json").out;
  static const std::regex moment(
      R"rx(\{"version":1,"at":1700001000,"store":"([^"]+)","seq":(\d+),"op")rx");
  std::vector<int> moments;
  for (std::sregex_iterator at(out.begin(), out.end(), moment), end; at != end; ++at)
    moments.push_back(std::stoi((*at)[2]));
  ASSERT_EQ(moments.size(), 3U) << out;
  EXPECT_EQ(moments[0], moments[1]);
  EXPECT_GT(moments[2], moments[1]);
}

TEST_F(WatchVerb, ShowsWhatThereIsThenEachChange) {
  putVm("web1", false);
  onWait([&] { putRunning("web1"); });
  onWait([&] { putVm("web2", false); });
  onWait([&] { del("vmConfig", "web1"); });
  onWait([&] { del("vmProcess", "web1"); });
  endAfterwards();
  EXPECT_EQ(watched(),
            (Answer{1,
                    put("web1", nothing) + synced() + put("web1", running) + put("web2", nothing) +
                        R"({"version":1,"op":"put","vm":{"name":"web1","removed":true,)" +
                        stateOf(running, "gone") + R"("config":null,"format":null,)" + running +
                        ",\"problem\":null}}\n" +
                        "{\"version\":1,\"op\":\"delete\",\"vm\":{\"name\":\"web1\"}}\n",
                    ""}));
}

TEST_F(WatchVerb, ShowsNamesOfOthersAsTheyAre) {
  putVm("\u202egnp", false);
  endAfterwards();
  EXPECT_EQ(watched().out, put("\\u202egnp", nothing) + synced());
}

TEST_F(WatchVerb, SaysNothingOfAChangeThatChangesNothing) {
  putVm("web1", false);
  onWait([&] {
    putVm("web1", true);
    putVm("web1", false);
  });
  onWait([&] {
    fakes::VmctlFixture::put("vmConfig", "web1",
                             R"({"diskImage":"/images/web.iso",)"
                             R"("memory":256})");
  });
  onWait([&] { fakes::VmctlFixture::put("fdb", "1/52:54:00:00:00:01", R"({"intf":"Cpu"})"); });
  endAfterwards();
  EXPECT_EQ(watched().out, put("web1", nothing) + synced());
}

TEST_F(WatchVerb, TellsOfACardsLine) {
  fakes::VmctlFixture::put(
      "vmConfig", "web1",
      R"({"diskImage":"/images/web.iso","vnicConfig":{"nic00":)"
      R"({"model":"e1000","macAddr":"52:54:00:12:34:56","intfName":"Eth1"}}})");
  onWait([&] { fakes::VmctlFixture::put("vmCard", "web1/nic00", R"({"link":"noCarrier"})"); });
  endAfterwards();
  const std::string out = watched().out;
  EXPECT_THAT(out.substr(out.find("synced")), testing::HasSubstr(R"("link":"noCarrier")"));
}

TEST_F(WatchVerb, FindsOutWhatChangedWhenTheLogWasCutShort) {
  putVm("web1", false);
  putVm("web2", false);
  onWait([&] {
    del("vmConfig", "web2");
    putRunning("web1");
    trim();
  });
  endAfterwards();
  EXPECT_EQ(watched().out, put("web1", nothing) + put("web2", nothing) + synced() +
                               put("web1", running) +
                               "{\"version\":1,\"op\":\"delete\",\"vm\":{\"name\":\"web2\"}}\n");
}

TEST_F(WatchVerb, OfATableKeepsItsColumns) {
  putVm("web1", false);
  onWait([&] { putRunning("web1"); });
  onWait([&] { del("vmConfig", "web1"); });
  onWait([&] { del("vmProcess", "web1"); });
  endAfterwards();
  EXPECT_EQ(vmctl("watch").out,
            "NAME  WANTED   ACTUAL  SINCE  WHY  NEXT\n"
            "web1  stopped  -       -      -    -\n"
            "web1  stopped  running  1m00s  -    -\n"
            "web1  gone     running  1m00s  -    -\n"
            "web1  gone     -        -      -    -\n");
}

TEST_F(WatchVerb, SaysThatNoDaemonRunsOnceEachTime) {
  putVm("web1", false);
  daemonRuns_ = false;
  onWait([&] { putVm("web1", true); });
  onWait([&] {
    daemonRuns_ = true;
    putVm("web1", false);
  });
  endAfterwards();
  const Answer answer = watched();
  EXPECT_EQ(answer.err, "vmctl: vmagentd is not running: the status is as it was left\n");
  EXPECT_THAT(answer.out, testing::StartsWith(R"({"version":1,"stale":true,"op":"put")"));
}

TEST_F(WatchVerb, BeatsWhileThereIsNothingToShow) {
  putVm("web1", false);
  onWait([] {});
  onWait([&] { putRunning("web1"); });
  endAfterwards();
  const Answer answer = watched("watch --beat 5 -o json");
  EXPECT_EQ(answer.out, put("web1", nothing) + synced() + beat() + put("web1", running));
  EXPECT_DOUBLE_EQ(time_, 1000 + 5 + 0.1 + 5);
}

TEST_F(WatchVerb, WithABeatTellsThatTheDaemonHasEnded) {
  putVm("web1", false);
  onWait([&] { daemonRuns_ = false; });
  onWait([&] { daemonRuns_ = true; });
  endAfterwards();
  EXPECT_EQ(watched("watch --beat 5 -o json").out,
            put("web1", nothing) + synced() + "{\"version\":1,\"stale\":true,\"op\":\"beat\"}\n" +
                beat());
}

TEST_F(WatchVerb, RefusesABeatThatIsTooFast) {
  EXPECT_EQ(
      vmctl("watch --beat 0.5 -o json"),
      (Answer{2, "", "vmctl: --beat: '0.5' is refused: must be a number of seconds, 1 or more\n"}));
}

TEST_F(WatchVerb, NeedsAStatusToWatch) {
  hasStatus_ = false;
  EXPECT_EQ(vmctl("watch").exit, 6);
}

}  // namespace
}  // namespace ctl
