#include "ctl/fakes/VmctlFixture.h"

namespace ctl {
namespace {

using fakes::Answer;

class WaitVerb : public fakes::VmctlFixture {
 protected:
  WaitVerb() { putVm("web1", true); }
};

TEST_F(WaitVerb, ReturnsAtOnceWhenItIsSo) {
  putRunning("web1");
  for (const char* what : {"state=Running", "enabled=true", "config.enabled=true",
                           "process=running", "state=Running --for process=running"})
    EXPECT_EQ(vmctl(std::string("wait web1 --for ") + what), (Answer{0, "", ""})) << what;
  EXPECT_EQ(time_, 1000);
}

TEST_F(WaitVerb, OfAVmWithoutStatusKnowsWhatThatMeans) {
  EXPECT_EQ(vmctl("wait web1 --for process=none --for enabled=false --for state="),
            (Answer{0, "", ""}));
}

TEST_F(WaitVerb, DoesNotGoByWhatTheDaemonSaidBeforeItHeard) {
  putRunning("web1");
  daemonListens_ = false;
  onWait([&] { putHeard(); });
  EXPECT_EQ(vmctl("wait web1 --for state=Running"), (Answer{0, "", ""}));
  EXPECT_EQ(waits_, 1);
}

TEST_F(WaitVerb, DoesNotGoByTheRunBeforeARestart) {
  putRunning("web1");
  ASSERT_EQ(vmctl("restart web1").exit, 0);
  EXPECT_EQ(vmctl("wait web1 --for state=Running --timeout 0").exit, 7);
  EXPECT_EQ(vmctl("wait web1 --for process=running --timeout 0").exit, 0);
  put("vmProcess", "web1", R"({"process":"running","pid":1,"restarts":1})");
  EXPECT_EQ(vmctl("wait web1 --for state=Running"), (Answer{0, "", ""}));
}

TEST_F(WaitVerb, OfTheConfigurationAloneWaitsForNoDaemon) {
  daemonListens_ = false;
  EXPECT_EQ(vmctl("wait web1 --for config.enabled=true"), (Answer{0, "", ""}));
  EXPECT_EQ(waits_, 0);
}

TEST_F(WaitVerb, KnowsTheAgentsStatesInWhateverCase) {
  onWait([&] { putRunning("web1"); });
  EXPECT_EQ(vmctl("wait web1 --for state=running"), (Answer{0, "", ""}));
  EXPECT_EQ(vmctl("wait web1 --for state=paused --timeout 0").exit, 7) << "as QEMU may call it";
  EXPECT_EQ(vmctl("wait web1 --for state=\xc3\xbcunning --timeout 0").exit, 7);
}

TEST_F(WaitVerb, KnowsItsOwnFieldsAndValuesInWhateverCase) {
  putOff("web1");
  EXPECT_EQ(vmctl("wait web1 --for Process=None --for Config.Enabled=TRUE"), (Answer{0, "", ""}));
}

TEST_F(WaitVerb, KnowsWhatListHasAsActual) {
  putOff("web1");
  onWait([&] { putRunning("web1"); });
  EXPECT_EQ(vmctl("wait web1 --for actual=running"), (Answer{0, "", ""}));
  EXPECT_EQ(vmctl("wait web1 --for Running"), (Answer{0, "", ""}));
  ASSERT_EQ(vmctl("restart web1").exit, 0);
  EXPECT_EQ(vmctl("wait web1 --for running --timeout 0").exit, 7) << "that is the run before";
  EXPECT_EQ(vmctl("wait web1 --for runing").exit, 2);
}

TEST_F(WaitVerb, TellsOfNoTroubleThatKeepsNothingFromHappening) {
  for (const char* source : {"restart", "format", "line"}) {
    put("vmProblem", "web1",
        rt::String(R"({"problem":"it is so","since":1,"source":")") + source + "\"}");
    EXPECT_THAT(vmctl("wait web1 --for state=Running --timeout 3").err,
                testing::Not(testing::HasSubstr("vmctl: web1: it is so\n")))
        << source;
  }
  put("vmProblem", "web1", R"({"problem":"it is so","since":1,"source":"card"})");
  EXPECT_THAT(vmctl("wait web1 --for state=Running --timeout 3").err,
              testing::HasSubstr("vmctl: web1: it is so\n"));
}

TEST_F(WaitVerb, ReturnsWhenItBecomesSo) {
  putRunning("web1");
  onWait([&] { put("vmProcess", "web1", R"({"process":"ending","pid":1,"restarts":0})"); });
  EXPECT_EQ(vmctl("wait web1 --for process=ending"), (Answer{0, "", ""}));
}

TEST_F(WaitVerb, SeesTheConfigurationChange) {
  onWait([&] { putVm("web1", false); });
  EXPECT_EQ(vmctl("wait web1 --for config.enabled=false"), (Answer{0, "", ""}));
  EXPECT_LT(time_, 1001);
}

TEST_F(WaitVerb, WaitsUntilAllIsSo) {
  onWait([&] { put("vmProcess", "web1", R"({"process":"running","pid":1,"restarts":0})"); });
  onWait([&] { putRunning("web1"); });
  EXPECT_EQ(vmctl("wait web1 --for process=running --for state=Running"), (Answer{0, "", ""}));
}

TEST_F(WaitVerb, SleepsBetweenLooksAfterAChangeToo) {
  onWait([&] { put("fdb", "1/52:54:00:00:00:01", R"({"intf":"Cpu","entryType":4})"); });
  onWait([&] { putVm("web2", false); });
  EXPECT_EQ(vmctl("wait web1 --for state=Running --timeout 5").exit, 7);
  EXPECT_LE(waits_, 8);
}

TEST_F(WaitVerb, LooksOnceWhenThereIsNoTime) {
  EXPECT_EQ(
      vmctl("wait web1 --for state=Running --timeout 0"),
      (Answer{7, "", "vmctl: web1: timed out after 0 s: there is no status, process is none\n"}));
  EXPECT_EQ(time_, 1000);
}

TEST_F(WaitVerb, SeesAProcessEndThatIsNotConfiguredAnyMore) {
  putRunning("old");
  onWait([&] {
    del("vmStatus", "old");
    del("vmProcess", "old");
  });
  EXPECT_EQ(vmctl("wait old --for process=none"), (Answer{0, "", ""}));
}

TEST_F(WaitVerb, RefusesAVmThatIsNotThere) {
  EXPECT_EQ(vmctl("wait web2 --for process=none"),
            (Answer{3, "", "vmctl: web2: there is no such VM; did you mean 'web1'?\n"}));
}

TEST_F(WaitVerb, RefusesWhatCannotBeWaitedFor) {
  EXPECT_EQ(
      vmctl("wait web1"),
      (Answer{2, "", "vmctl: 'wait' needs --for FIELD=VALUE, such as --for actual=running\n"}));
  EXPECT_EQ(vmctl("wait web1 --for memory=1"),
            (Answer{2, "",
                    "vmctl: --for: there is no field 'memory' to wait for; there are "
                    "actual, state, enabled, config.enabled and process\n"}));
  EXPECT_EQ(vmctl("wait web1 --for process=gone"),
            (Answer{2, "",
                    "vmctl: --for: process: 'gone' is refused: must be none, running or "
                    "ending\n"}));
  EXPECT_EQ(vmctl("wait web1 --for enabled=yes"),
            (Answer{2, "", "vmctl: --for: enabled: 'yes' is refused: must be true or false\n"}));
}

TEST_F(WaitVerb, DoesNotWaitForADaemonThatDoesNotRun) {
  daemonRuns_ = false;
  hasStatus_ = false;
  EXPECT_EQ(vmctl("wait web1 --for state=Running"),
            (Answer{1, "",
                    "vmctl: vmagentd is not running: there is nobody to wait for; when it stopped, "
                    "there is no status, process is none\n"}));
}

}  // namespace
}  // namespace ctl
