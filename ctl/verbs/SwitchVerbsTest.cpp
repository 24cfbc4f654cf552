#include "ctl/fakes/VmctlFixture.h"

namespace ctl {
namespace {

using fakes::Answer;
using testing::HasSubstr;

constexpr const char* noDaemon =
    "vmctl: vmagentd is not running: it is written down, and nobody to wait for\n";

class SwitchVerb : public fakes::VmctlFixture {
 protected:
  bool isEnabled(const rt::String& name) {
    return doc("vmConfig", name).find(R"("enabled":true)") != std::string::npos;
  }
  // As the daemon writes of one whose guest has ended by itself.
  void putEnded(const rt::String& name, int restarts = 0) {
    put("vmStatus", name,
        R"({"enabled":true,"state":"Stopped","consolePtyPath":"","cmdStatusStr":""})");
    put("vmProcess", name, R"({"process":"none","pid":0,"restarts":)" + rt::toText(restarts) + "}");
  }
  void putProblem(const rt::String& name, const char* problem) {
    put("vmProblem", name,
        R"({"problem":")" + rt::String(problem) + R"(","since":1,"source":"image"})");
  }
};
class EnableVerb : public SwitchVerb {};
class DisableVerb : public SwitchVerb {};
class RestartVerb : public SwitchVerb {};
class RemoveVerb : public SwitchVerb {};

// enable

TEST_F(EnableVerb, WritesItDownAndReturnsAtOnce) {
  putVm("web1", false);
  EXPECT_EQ(vmctl("enable web1"), (Answer{0, "", "web1: enabled\n"}));
  EXPECT_TRUE(isEnabled("web1"));
  EXPECT_EQ(vmctl("start web1"), (Answer{0, "", "web1: was enabled already\n"}));
}

TEST_F(EnableVerb, WaitsUntilTheVmRuns) {
  putVm("web1", false);
  putOff("web1");
  onWait([&] {
    EXPECT_TRUE(isEnabled("web1"));
    put("vmStatus", "web1",
        R"({"enabled":true,"state":"Starting","consolePtyPath":"","cmdStatusStr":""})");
  });
  onWait([&] { putRunning("web1"); });
  EXPECT_EQ(vmctl("enable web1 --wait"), (Answer{0, "", "web1: enabled and running\n"}));
  EXPECT_LT(time_, 1001);  // woken, not timed
}

TEST_F(EnableVerb, TimesOutAndSaysWhatWasSo) {
  putVm("web1", false);
  putOff("web1");
  EXPECT_EQ(vmctl("enable web1 --wait --timeout 2.5"),
            (Answer{7, "",
                    "vmctl: web1: timed out after 2.5 s: enabled is false, state is 'Stopped', "
                    "process is none\n"}));
  EXPECT_DOUBLE_EQ(time_, 1002.5);
}

TEST_F(EnableVerb, EndsAtOnceWhenTheStartHasFailedForGood) {
  putVm("web1", false);
  putOff("web1");
  onWait([&] {
    putEnded("web1");
    putProblem("web1", "no such program");
  });
  EXPECT_EQ(vmctl("enable web1 --wait"),
            (Answer{1, "", "vmctl: web1: its guest has ended: no such program\n"}));
  EXPECT_LT(time_, 1001);
}

TEST_F(EnableVerb, TellsNoProblemTwiceWhenTheStartHasFailedForGood) {
  putVm("web1", false);
  onWait([&] { putProblem("web1", "no such program"); });
  onWait([&] { putEnded("web1"); });
  EXPECT_EQ(vmctl("enable web1 --wait"), (Answer{1, "",
                                                 "vmctl: web1: no such program\n"
                                                 "vmctl: web1: its guest has ended\n"}));
}

TEST_F(EnableVerb, GoesOnWaitingWhileTheDaemonTriesAFailedStartAgain) {
  putVm("web1", false);
  onWait([&] {
    putOff("web1");
    putProblem("web1", "FAIL: starting qemu failed");
  });
  onWait([&] { putRunning("web1"); });
  EXPECT_EQ(vmctl("enable web1 --wait").exit, 0);
}

TEST_F(EnableVerb, DoesNotTakeTheEndOfTheGuestBeforeForAFailedStart) {
  putVm("web1", false);  // just now, and the daemon has not come to it yet
  putEnded("web1");
  onWait([] {});
  onWait([&] { putOff("web1"); });
  onWait([&] { putRunning("web1"); });
  EXPECT_EQ(vmctl("enable web1 --wait").exit, 0);
  putVm("web1", false);
  putEnded("web1");
  onWait([&] { putOff("web1"); });
  onWait([&] { putEnded("web1"); });
  EXPECT_EQ(vmctl("enable web1 --wait").exit, 1) << "but the next one";
}

TEST_F(EnableVerb, DoesNotGoByAnEndThatTheDaemonToldBeforeItHeard) {
  putVm("web1", false);
  daemonListens_ = false;
  onWait([&] { putEnded("web1"); });
  onWait([&] {
    putRunning("web1");
    putHeard();
  });
  EXPECT_EQ(vmctl("enable web1 --wait").exit, 0);
}

TEST_F(EnableVerb, WaitsForTheOthersWhenOneHasFailedForGood) {
  putVm("web1", false);
  putVm("web2", false);
  onWait([&] { putEnded("web1"); });
  onWait([&] { putRunning("web2"); });
  EXPECT_EQ(vmctl("enable web1 web2 --wait"), (Answer{1, "",
                                                      "vmctl: web1: its guest has ended\n"
                                                      "web2: enabled and running\n"}));
}

TEST_F(EnableVerb, TellsAProblemOnceAndGoesOnWaiting) {
  putVm("web1", false);
  onWait([&] { putProblem("web1", "no such image"); });
  onWait([&] { put("vmProcess", "web1", R"({"process":"none","pid":0,"restarts":0})"); });
  onWait([&] {
    del("vmProblem", "web1");
    putRunning("web1");
  });
  EXPECT_EQ(vmctl("enable web1 --wait"), (Answer{0, "",
                                                 "vmctl: web1: no such image\n"
                                                 "web1: enabled and running\n"}));
}

TEST_F(EnableVerb, TellsAnOldProblemOnlyWhenItStays) {
  putVm("web1", false);
  putVm("web2", false);
  putProblem("web1", "old");
  onWait([&] { put("vmProcess", "web1", R"({"process":"running","pid":1,"restarts":0})"); });
  onWait([&] {
    del("vmProblem", "web1");
    putRunning("web1");
  });
  EXPECT_EQ(vmctl("enable web1 --wait").err, "web1: enabled and running\n");
  putProblem("web2", "old");
  EXPECT_EQ(vmctl("enable web2 --wait --timeout 3").err,
            "vmctl: web2: old\n"
            "vmctl: web2: timed out after 3 s: there is no status, process is none; old\n");
}

TEST_F(EnableVerb, CutsTheProgressLineWhereTheTerminalEnds) {
  putVm("web1", false);
  isTerminal_ = true;
  columns_ = 30;
  onWait([&] { putRunning("web1"); });
  EXPECT_EQ(vmctl("enable web1 --wait").err,
            "\r\x1b[Kweb1: waiting for 0 s: the..."
            "\r\x1b[Kweb1: enabled and running\n");
}

TEST_F(EnableVerb, RepeatsTheProblemWhenItTimesOut) {
  putVm("web1", false);
  onWait([&] { putProblem("web1", "no such image"); });
  EXPECT_EQ(vmctl("enable web1 --wait"),
            (Answer{7, "",
                    "vmctl: web1: no such image\n"
                    "vmctl: web1: timed out after 60 s: there is no status, process is none; no "
                    "such image\n"}));
}

TEST_F(EnableVerb, GoesOnAfterANameThatIsRefusedAndExitsWithTheFirst) {
  putVm("web1", false);
  putVm("web2", false);
  put("vmConfig", "web3", R"({"diskImage":"web.iso","memory":256})");
  EXPECT_EQ(vmctl("enable wbe1 web1 web3 web2"),
            (Answer{3, "",
                    "vmctl: wbe1: there is no such VM; did you mean 'web1'?\n"
                    "web1: enabled\n"
                    "vmctl: web3: diskImage: 'web.iso' is refused: must be an absolute path "
                    "without blanks, commas and control characters\n"
                    "web2: enabled\n"}));
  EXPECT_TRUE(isEnabled("web2"));
}

TEST_F(EnableVerb, WaitsForTheOthersAfterANameThatIsRefused) {
  putVm("web1", false);
  onWait([&] { putRunning("web1"); });
  EXPECT_EQ(vmctl("enable web1 web9 --wait"),
            (Answer{3, "",
                    "vmctl: web9: there is no such VM; did you mean 'web1'?\n"
                    "web1: enabled and running\n"}));
}

TEST_F(EnableVerb, AsksForAllBeforeItWaitsForAny) {
  putVm("web1", false);
  putVm("web2", false);
  onWait([&] {
    EXPECT_TRUE(isEnabled("web2"));
    putRunning("web2");
    putRunning("web1");
  });
  EXPECT_EQ(vmctl("enable web1 web2 --wait"), (Answer{0, "",
                                                      "web1: enabled and running\n"
                                                      "web2: enabled and running\n"}));
}

TEST_F(EnableVerb, RefusesAVncPortThatAnEnabledVmHas) {
  for (const char* name : {"web1", "web2"})
    put("vmConfig", name, R"({"diskImage":"/a.iso","memory":256,"vncPort":5901})");
  EXPECT_EQ(vmctl("enable web1 web2"),
            (Answer{5, "",
                    "web1: enabled\n"
                    "vmctl: web2: vncPort: '5901' is refused: must be another port, or 0 for none: "
                    "VM 'web1' is enabled and has it\n"}));
  EXPECT_FALSE(isEnabled("web2"));
}

TEST_F(EnableVerb, StartsAgainWhatHasEnded) {
  putVm("web1", true);
  putEnded("web1", 3);
  EXPECT_EQ(vmctl("start web1"), (Answer{0, "", "web1: is started again\n"}));
  EXPECT_EQ(doc("vmIntent", "web1"), R"({"restart":4,"ifEnded":true})")
      << "it may have been started since it was looked at";
}

TEST_F(EnableVerb, TakesNoRestartBackThatWasAskedForAndIsNotDone) {
  putVm("web1", true);
  putEnded("web1", 3);
  put("vmIntent", "web1", R"({"restart":4})");
  vmctl("start web1");
  EXPECT_EQ(doc("vmIntent", "web1"), R"({"restart":5})");
  put("vmIntent", "web1", R"({"restart":4,"ifEnded":true})");
  vmctl("start web1");
  EXPECT_EQ(doc("vmIntent", "web1"), R"({"restart":5,"ifEnded":true})");
  vmctl("restart web1");
  EXPECT_EQ(doc("vmIntent", "web1"), R"({"restart":6})");
}

TEST_F(EnableVerb, StartsWhatIsTriedAgainLaterAtOnce) {
  putVm("web1", true);
  put("vmProcess", "web1", R"({"process":"none","restarts":3,"actual":"retrying"})");
  EXPECT_EQ(vmctl("start web1"), (Answer{0, "", "web1: is started again\n"}));
}

TEST_F(EnableVerb, RestartsNothingThatRunsOrIsAboutTo) {
  putVm("web1", true);
  for (const char* actual : {"running", "starting", "hung", "stopping"}) {
    put("vmProcess", "web1",
        R"({"process":"running","restarts":3,"actual":")" + rt::String(actual) + "\"}");
    EXPECT_EQ(vmctl("start web1"), (Answer{0, "", "web1: was enabled already\n"})) << actual;
  }
  EXPECT_EQ(doc("vmIntent", "web1"), "none");
}

TEST_F(EnableVerb, SaysThatAGuestIsPaused) {
  putVm("web1", true);
  put("vmProcess", "web1", R"({"process":"running","restarts":3,"actual":"paused"})");
  EXPECT_EQ(vmctl("start web1"),
            (Answer{0, "",
                    "vmctl: web1: is paused: 'vmctl resume web1' lets it go on\n"
                    "web1: was enabled already\n"}));
}

TEST_F(EnableVerb, OfAllStartsThoseThatAreOff) {
  putVm("web1", true);
  putRunning("web1");
  putVm("web2", false);
  EXPECT_EQ(vmctl("start --all"), (Answer{0, "", "web1: was enabled already\nweb2: enabled\n"}));
  EXPECT_EQ(vmctl("start").exit, 2);
}

TEST_F(EnableVerb, GivesUpOnceItsStartIsRefusedForGood) {
  putVm("web1", false);
  putOff("web1");
  const auto putRefused = [&] {
    putProblem("web1", "the disk image is no file");
    put("vmProcess", "web1", R"({"process":"none","restarts":0,"actual":"refused"})");
  };
  onWait(putRefused);
  EXPECT_EQ(vmctl("start web1 --wait"), (Answer{1, "",
                                                "vmctl: web1: the disk image is no file\n"
                                                "vmctl: web1: its start is refused\n"}));
  EXPECT_LT(time_, 1006);
}

TEST_F(EnableVerb, WaitsForAnImageThatIsLookedAtAnew) {
  putVm("web1", true);
  put("vmProcess", "web1", R"({"process":"none","restarts":0,"actual":"refused"})");
  onWait([] {});
  onWait([&] {
    putRunning("web1");
    put("vmProcess", "web1", R"({"process":"running","restarts":1,"actual":"running"})");
  });
  EXPECT_EQ(vmctl("start web1 --wait").exit, 0);
}

TEST_F(EnableVerb, DoesNotTakeAGuestThatWasNotPolledYetForOneThatHasEnded) {
  putVm("web1", true);
  put("vmStatus", "web1",
      R"({"enabled":true,"state":"Stopped","consolePtyPath":"","cmdStatusStr":""})");
  put("vmProcess", "web1", R"({"process":"running","pid":4711,"restarts":0})");
  EXPECT_EQ(vmctl("enable web1"), (Answer{0, "", "web1: was enabled already\n"}));
}

TEST_F(EnableVerb, WarnsOfAMissingImage) {
  putVm("web1", false);
  missingImages_ = {"/images/web.iso"};
  EXPECT_EQ(vmctl("enable web1"),
            (Answer{0, "",
                    "vmctl: web1: warning: the disk image '/images/web.iso' cannot be used now: it "
                    "must be a file that can be read: No such file or directory\n"
                    "web1: enabled\n"}));
}

TEST_F(EnableVerb, WritesWithoutADaemonAndDoesNotWaitForNobody) {
  putVm("web1", false);
  daemonRuns_ = false;
  hasStatus_ = false;
  EXPECT_EQ(vmctl("enable web1 --wait"), (Answer{1, "", noDaemon}));
  EXPECT_TRUE(isEnabled("web1"));
  EXPECT_EQ(time_, 1000);
  EXPECT_EQ(vmctl("disable web1"), (Answer{0, "", "web1: disabled; its guest is being ended\n"}));
}

TEST_F(EnableVerb, SaysWhenTheDaemonGoesAwayAndGoesOnWaiting) {
  putVm("web1", false);
  onWait([&] { daemonRuns_ = false; });
  onWait([&] {
    daemonRuns_ = true;
    putRunning("web1");
  });
  EXPECT_EQ(vmctl("enable web1 --wait"),
            (Answer{0, "",
                    "vmctl: vmagentd is not running any more: nothing happens until it does\n"
                    "web1: enabled and running\n"}));
}

TEST_F(EnableVerb, ShowsProgressOnATerminalAndTakesItAway) {
  putVm("web1", false);
  isTerminal_ = true;
  onWait([] {});
  onWait([&] { putRunning("web1"); });
  EXPECT_EQ(vmctl("enable web1 --wait").err,
            "\r\x1b[Kweb1: waiting for 0 s: there is no status, process is none"
            "\r\x1b[Kweb1: waiting for 1 s: there is no status, process is none"
            "\r\x1b[Kweb1: enabled and running\n");
}

TEST_F(DisableVerb, SaysOnATerminalWhatItWaitsForAndHowLongStill) {
  putVm("web1", true);
  isTerminal_ = true;
  put("vmProcess", "web1",
      R"({"process":"ending","actual":"stopping","why":"it was asked to shut down",)"
      R"("nextKind":"auto","next":"is switched off","nextAt":1700001015})");
  columns_ = 120;
  onWait([] {});
  onWait([&] { putOff("web1"); });
  EXPECT_EQ(
      vmctl("stop web1 --wait").err,
      "\r\x1b[Kweb1: waiting for 0 s: stopping, it was asked to shut down; it is switched off "
      "in 15s"
      "\r\x1b[Kweb1: waiting for 1 s: stopping, it was asked to shut down; it is switched off "
      "in 14s"
      "\r\x1b[Kweb1: disabled, and no process is left\n");
}

TEST_F(EnableVerb, EndsWhenTheVmIsRemovedMeanwhile) {
  putVm("web1", false);
  onWait([&] { del("vmConfig", "web1"); });
  EXPECT_EQ(vmctl("enable web1 --wait"),
            (Answer{3, "", "vmctl: web1: was removed while it was waited for\n"}));
}

TEST_F(EnableVerb, RefusesATimeThatIsNone) {
  putVm("web1", false);
  EXPECT_EQ(vmctl("enable web1 --wait --timeout soon"),
            (Answer{2, "",
                    "vmctl: --timeout: 'soon' is refused: must be a number of seconds, such as "
                    "60\n"}));
  EXPECT_FALSE(isEnabled("web1"));
}

// stop, disable

TEST_F(DisableVerb, GivesTheGuestTheTimeThatItIsTold) {
  putVm("web1", true);
  EXPECT_EQ(vmctl("stop web1 --timeout 90").exit, 0);
  EXPECT_EQ(doc("vmIntent", "web1"), R"({"restart":0,"stop":1,"within":90})");
  EXPECT_FALSE(isEnabled("web1"));
  EXPECT_EQ(vmctl("stop web1 --now").exit, 0);
  EXPECT_EQ(doc("vmIntent", "web1"), R"({"restart":0,"stop":2,"within":0})")
      << "of one that is off already, too: it may be on its way";
  EXPECT_EQ(vmctl("stop web1").exit, 0);
  EXPECT_EQ(doc("vmIntent", "web1"), R"({"restart":0,"stop":2,"within":0})");
  EXPECT_EQ(vmctl("stop web1 --now --timeout 3").exit, 2);
  EXPECT_EQ(vmctl("stop web1 --timeout 86401").exit, 2);
}

TEST_F(DisableVerb, KeepsTheNumberOfRestarts) {
  putVm("web1", true);
  put("vmIntent", "web1", R"({"restart":7})");
  vmctl("stop web1 --now");
  EXPECT_EQ(doc("vmIntent", "web1"), R"({"restart":7,"stop":1,"within":0})");
}

TEST_F(DisableVerb, HasTheGuestsKeeperEndItWhereNoDaemonRuns) {
  putVm("web1", true);
  daemonRuns_ = false;
  EXPECT_EQ(vmctl("stop web1 --timeout 3"),
            (Answer{0, "", "web1: disabled; its guest is being ended\n"}));
  EXPECT_EQ(vmctl("stop web1 --now --wait"),
            (Answer{0, "", "web1: disabled; its guest has ended\n"}));
  EXPECT_EQ(vmctl("stop web1"), (Answer{0, "", "web1: disabled; its guest is being ended\n"}));
  EXPECT_THAT(shimCalls_, testing::ElementsAre(R"(web1 {"stop":{"timeout":3,"by":"op1"}})",
                                               R"(web1 {"stop":{"timeout":0,"by":"op1"}})",
                                               R"(web1 {"stop":{"by":"op1"}})"));
  shimAnswers_["web1"] = {ShimAnswer::Kind::absent, "", ""};
  EXPECT_EQ(vmctl("stop web1"), (Answer{0, "", "web1: disabled; no guest runs\n"}));
  shimAnswers_["web1"] = {ShimAnswer::Kind::silent, "", ""};
  EXPECT_EQ(vmctl("stop web1 --wait --timeout 3").exit, 7);
}

TEST_F(DisableVerb, WaitsUntilTheProcessIsGone) {
  putVm("web1", true);
  putRunning("web1");
  onWait([&] {
    put("vmStatus", "web1",
        R"({"enabled":false,"state":"Stopped","consolePtyPath":"","cmdStatusStr":""})");
    put("vmProcess", "web1", R"({"process":"ending","pid":4711,"restarts":0})");
  });
  onWait([&] { putOff("web1"); });
  EXPECT_EQ(vmctl("stop web1 --wait"), (Answer{0, "", "web1: disabled, and no process is left\n"}));
  EXPECT_EQ(waits_, 2);  // not only until it was told to end
  EXPECT_FALSE(isEnabled("web1"));
}

TEST_F(DisableVerb, DoesNotGoByWhatTheDaemonSaidBeforeItHeard) {
  putVm("web1", true);  // just now: the daemon starts it before it hears of the rest
  daemonListens_ = false;
  onWait([&] { putRunning("web1"); });
  onWait([&] { putHeard(); });
  onWait([&] { putOff("web1"); });
  EXPECT_EQ(vmctl("disable web1 --wait"),
            (Answer{0, "", "web1: disabled, and no process is left\n"}));
  EXPECT_EQ(waits_, 3);
}

TEST_F(DisableVerb, DoesNotTakeAnotherDatabasesMomentForItsOwn) {
  putVm("web1", true);
  daemonListens_ = false;
  put("daemon", "vmagentd", R"({"configStore":"another","configSequence":1000000})");
  EXPECT_EQ(vmctl("disable web1 --wait --timeout 2").exit, 7);
}

TEST_F(DisableVerb, OfAllStopsTheEnabledOnes) {
  putVm("web1", true);
  putVm("web2", false);
  putVm("web3", true);
  EXPECT_EQ(vmctl("stop --all"), (Answer{0, "", "web1: disabled\nweb3: disabled\n"}));
  EXPECT_EQ(vmctl("stop --all --wait"), (Answer{0, "", "no VM is enabled\n"}));
}

TEST_F(DisableVerb, NeedsNamesOrAll) {
  EXPECT_EQ(vmctl("disable"), (Answer{2, "", "vmctl: which VM? Name one, or say --all\n"}));
  EXPECT_EQ(vmctl("disable web1 --all"),
            (Answer{2, "", "vmctl: --all takes no names: say one or the other\n"}));
}

TEST_F(DisableVerb, OfOneThatIsDisabledChangesNothing) {
  putVm("web1", false);
  EXPECT_EQ(vmctl("disable web1"), (Answer{0, "", "web1: was disabled already\n"}));
}

// restart

TEST_F(RestartVerb, RaisesTheNumberThatAsksForIt) {
  putVm("web1", true);
  EXPECT_EQ(vmctl("restart web1"), (Answer{0, "", "web1: restart asked for\n"}));
  EXPECT_EQ(doc("vmIntent", "web1"), R"({"restart":1})");
  vmctl("restart web1");
  EXPECT_EQ(doc("vmIntent", "web1"), R"({"restart":2})");
}

TEST_F(RestartVerb, EndsNoGuestThatCouldNotBeStartedAgainUnlessForced) {
  putVm("web1", true);
  putRunning("web1");
  missingImages_ = {"/images/web.iso"};
  const Answer answer = vmctl("restart web1");
  EXPECT_EQ(answer.exit, 4);
  EXPECT_EQ(doc("vmIntent", "web1"), "none");
  EXPECT_THAT(answer.err, HasSubstr("web1: the disk image '/images/web.iso' cannot be used now: "));
  EXPECT_THAT(answer.err, HasSubstr("; a restart would end the guest for good: --force does so"));
  EXPECT_EQ(vmctl("restart web1 --force").exit, 0);
  EXPECT_EQ(doc("vmIntent", "web1"), R"({"restart":1})");
}

TEST_F(RestartVerb, OnlyWarnsWhereNoGuestRuns) {
  putVm("web1", true);
  missingImages_ = {"/images/web.iso"};
  EXPECT_EQ(vmctl("restart web1").exit, 0);
  EXPECT_EQ(doc("vmIntent", "web1"), R"({"restart":1})");
}

TEST_F(RestartVerb, AsksForOneMoreThanWereCarriedOut) {
  putVm("web1", true);
  put("vmIntent", "web1", R"("damaged")");
  put("vmProcess", "web1", R"({"process":"running","pid":1,"restarts":41})");
  vmctl("restart web1");
  EXPECT_EQ(doc("vmIntent", "web1"), R"({"restart":42})");
}

TEST_F(RestartVerb, WaitsUntilItsOwnNumberWasCarriedOut) {
  putVm("web1", true);
  putRunning("web1");
  put("vmIntent", "web1", R"({"restart":6})");
  onWait([&] { put("vmProcess", "web1", R"({"process":"running","pid":1,"restarts":6})"); });
  onWait([&] {
    put("vmProcess", "web1", R"({"process":"running","pid":2,"restarts":7})");
    put("vmStatus", "web1",
        R"({"enabled":true,"state":"Starting","consolePtyPath":"","cmdStatusStr":""})");
  });
  onWait([&] {
    put("vmStatus", "web1",
        R"({"enabled":true,"state":"Running","consolePtyPath":"","cmdStatusStr":""})");
  });
  EXPECT_EQ(vmctl("restart web1 --wait"), (Answer{0, "", "web1: restarted and running\n"}));
  EXPECT_EQ(waits_, 3);
}

TEST_F(RestartVerb, EndsAtOnceWhenItsOwnStartHasFailedForGood) {
  putVm("web1", true);
  putEnded("web1");  // which is why it is restarted
  onWait([] {});
  onWait([&] { putEnded("web1", 1); });
  EXPECT_EQ(vmctl("restart web1 --wait"), (Answer{1, "", "vmctl: web1: its guest has ended\n"}));
  EXPECT_EQ(waits_, 2);
}

TEST_F(RestartVerb, CountsEachOfTwoThatAskAtTheSameMoment) {
  putVm("web1", true);
  beforeCommit([&] { vmctl("restart web1"); });
  vmctl("restart web1");
  EXPECT_EQ(doc("vmIntent", "web1"), R"({"restart":2})");
}

TEST_F(RestartVerb, SaysHowLongTheGuestHas) {
  putVm("web1", true);
  put("vmIntent", "web1", R"({"restart":0,"stop":4,"within":9})");
  EXPECT_EQ(vmctl("restart web1 --now").exit, 0);
  EXPECT_EQ(doc("vmIntent", "web1"), R"({"restart":1,"stop":4,"within":0})");
  EXPECT_EQ(vmctl("restart --all").exit, 0);
  EXPECT_EQ(doc("vmIntent", "web1"), R"({"restart":2,"stop":4})") << "as always";
}

TEST_F(RestartVerb, RefersToEnableWhenTheVmIsOff) {
  putVm("web1", false);
  EXPECT_EQ(vmctl("restart web1"),
            (Answer{4, "", "vmctl: web1: is not enabled: 'vmctl start web1' starts it\n"}));
  EXPECT_EQ(doc("vmIntent", "web1"), "none");
}

TEST_F(RestartVerb, WarnsOfAnImageThatWouldNotStartAgain) {
  putVm("web1", true);
  missingImages_ = {"/images/web.iso"};
  EXPECT_THAT(vmctl("restart web1").err, HasSubstr("warning: the disk image"));
}

TEST_F(SwitchVerb, TakesNoSecondsForAVm) {
  EXPECT_EQ(
      vmctl("start web1 --wait 5"),
      (Answer{2, "",
              "vmctl: 5: there is no such VM; for how long --wait waits, say --timeout 5\n"}));
  EXPECT_EQ(vmctl("start all").err, "vmctl: all: there is no such VM; --all means all of them\n");
}

// remove

TEST_F(RemoveVerb, RemovesTheVmAndWhatWasAskedOfIt) {
  putVm("web1", false);
  put("vmIntent", "web1", R"({"restart":1})");
  EXPECT_EQ(vmctl("rm web1"), (Answer{0, "", "web1: removed\n"}));
  EXPECT_EQ(doc("vmConfig", "web1"), "none");
  EXPECT_EQ(doc("vmIntent", "web1"), "none");
}

TEST_F(RemoveVerb, OfAnEnabledVmNeedsForce) {
  putVm("web1", true);
  EXPECT_EQ(vmctl("remove web1"),
            (Answer{4, "",
                    "vmctl: web1: is enabled: 'vmctl stop web1' first, or --force, which ends "
                    "its guest\n"}));
  EXPECT_TRUE(isEnabled("web1"));
  EXPECT_EQ(vmctl("remove --force web1"), (Answer{0, "", "web1: removed\n"}));
}

TEST_F(RemoveVerb, OfAVmThatIsEnabledAtTheLastMomentIsRefused) {
  putVm("web1", false);
  beforeCommit([&] { putVm("web1", true); });
  EXPECT_EQ(vmctl("remove web1").exit, 4);
  EXPECT_TRUE(isEnabled("web1"));
}

TEST_F(RemoveVerb, OfARowThatCannotBeReadNeedsForce) {
  put("vmConfig", "web1", "[]");
  EXPECT_EQ(vmctl("remove web1"),
            (Answer{4, "",
                    "vmctl: web1: its configuration cannot be read, so it may be enabled: --force "
                    "removes it\n"}));
  EXPECT_EQ(vmctl("remove web1 --force").exit, 0);
}

TEST_F(RemoveVerb, DoesNotGoByWhatTheDaemonSaidBeforeItHeard) {
  putVm("web1", true);
  daemonListens_ = false;
  onWait([&] { putHeard(); });
  EXPECT_EQ(vmctl("remove web1 --force --wait").exit, 0);
  EXPECT_EQ(waits_, 1);
}

TEST_F(RemoveVerb, WaitsUntilNothingIsLeft) {
  putVm("web1", true);
  putRunning("web1");
  onWait([&] { del("vmStatus", "web1"); });
  onWait([&] { del("vmProcess", "web1"); });
  EXPECT_EQ(vmctl("remove web1 --force --wait"),
            (Answer{0, "", "web1: removed, and no process is left\n"}));
}

}  // namespace
}  // namespace ctl
