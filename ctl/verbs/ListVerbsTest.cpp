#include <sstream>

#include "ctl/fakes/VmctlFixture.h"

namespace ctl {
namespace {

using fakes::Answer;
using testing::HasSubstr;
using testing::Not;

constexpr const char* staleLine = "vmctl: vmagentd is not running: the status is as it was left\n";

class ListVerb : public fakes::VmctlFixture {
 protected:
  // One that runs, one that is off and one whose image is missing.
  void putThree() {
    put("vmConfig", "web1",
        R"({"enabled":true,"diskImage":"/images/web.iso","memory":256,"vncPort":5901,)"
        R"("vnicConfig":{"nic00":{"model":"e1000","macAddr":"52:54:00:12:34:56",)"
        R"("intfName":"Vlan100"},"nic01":{"model":"e1000","macAddr":"52:54:00:12:34:57",)"
        R"("intfName":"Vlan200"}}})");
    putRunning("web1");
    putVm("db", false);
    putOff("db");
    putVm("probe", true);
    put("vmProblem", "probe",
        R"({"problem":"diskImage: '/images/web.iso' is refused","since":1732186123,)"
        R"("source":"image"})");
  }
};
class ShowVerb : public ListVerb {};

// The members of a VM's state in JSON, of one that runs as putRunning() has it or of one that
// nothing is known of.
std::string stateJson(size_t indent, const std::string& wanted, bool runs) {
  const std::string known = runs ? R"("actual": "running",
"severity": "ok",
"since": 1700000940,
)"
                                 : R"("actual": null,
"severity": null,
"since": null,
)";
  const std::string all = "\"wanted\": \"" + wanted + "\",\n" + known + R"("reasons": [],
"next": {
  "kind": "none",
  "at": null,
  "text": null,
  "short": null,
  "command": null
},
"end": null,
"attempt": 0,
"nextAt": null,
"stopDeadline": null,
"pid": null,
"startedAt": null,
"qemuVersion": null,
"resets": 0,
"cards": [],
)";
  std::string out;
  std::istringstream lines(all);
  for (std::string line; std::getline(lines, line);) out += std::string(indent, ' ') + line + "\n";
  return out;
}

TEST_F(ListVerb, ShowsWhatIsAskedForWhatIsSoAndWhatIsWrong) {
  putThree();
  EXPECT_EQ(
      vmctl("list"),
      (Answer{0,
              "NAME   WANTED   ACTUAL   SINCE  WHY                                      NEXT\n"
              "db     stopped  stopped  1m00s  -                                        -\n"
              "probe  running  -        -      diskImage: '/images/web.iso' is refused  -\n"
              "web1   running  running  1m00s  -                                        -\n",
              ""}));
}

TEST_F(ListVerb, ShowsMoreInWideFormat) {
  putThree();
  EXPECT_EQ(vmctl("ls -o wide").out,
            "NAME   WANTED   ACTUAL   SINCE  WHY                                      NEXT  PID   "
            "MEMORY  "
            "VNC   DISK             CARDS                        CONSOLE\n"
            "db     stopped  stopped  1m00s  -                                        -     -     "
            "256M    "
            "-     /images/web.iso  -                            -\n"
            "probe  running  -        -      diskImage: '/images/web.iso' is refused  -     -     "
            "256M    "
            "-     /images/web.iso  -                            -\n"
            "web1   running  running  1m00s  -                                        -     4711  "
            "256M    "
            "5901  /images/web.iso  nic00=Vlan100,nic01=Vlan200  /dev/pts/4\n");
}

TEST_F(ListVerb, GivesNamesOnly) {
  putThree();
  EXPECT_EQ(vmctl("list -oname"), (Answer{0, "db\nprobe\nweb1\n", ""}));
}

TEST_F(ListVerb, GivesJson) {
  putVm("db", false);
  putVm("web1", true);
  putRunning("web1");
  put("vmProblem", "web1", R"({"problem":"restart needed","since":1732186123,"source":"restart"})");
  EXPECT_EQ(vmctl("list -o json"), (Answer{0,
                                           R"({
  "version": 1,
  "vms": [
    {
      "name": "db",
)" + stateJson(6, "stopped", false) + R"(      "config": {
        "enabled": false,
        "diskImage": "/images/web.iso",
        "memory": 256,
        "vncPort": 0,
        "vnicConfig": {}
      },
      "format": null,
      "status": null,
      "process": {
        "process": "none",
        "pid": 0,
        "restarts": 0
      },
      "problem": null
    },
    {
      "name": "web1",
)" + stateJson(6, "running", true) + R"(      "config": {
        "enabled": true,
        "diskImage": "/images/web.iso",
        "memory": 256,
        "vncPort": 0,
        "vnicConfig": {}
      },
      "format": null,
      "status": {
        "enabled": true,
        "state": "Running",
        "consolePtyPath": "/dev/pts/4",
        "cmdStatusStr": ""
      },
      "process": {
        "process": "running",
        "pid": 4711,
        "restarts": 0
      },
      "problem": {
        "problem": "restart needed",
        "since": 1732186123,
        "source": "restart"
      }
    }
  ]
}
)",
                                           ""}));
}

TEST_F(ListVerb, OfNothingIsAnEmptyListInJsonAndASentenceForPeople) {
  EXPECT_EQ(vmctl("list -o json"), (Answer{0, "{\n  \"version\": 1,\n  \"vms\": []\n}\n", ""}));
  EXPECT_EQ(vmctl("list"), (Answer{0, "", "there are no VMs: 'vmctl add' makes one\n"}));
  EXPECT_EQ(vmctl("list -o name"), (Answer{0, "", ""}));
}

TEST_F(ListVerb, SaysThatTheStatusIsOldWhenNoDaemonRuns) {
  putVm("db", false);
  daemonRuns_ = false;
  EXPECT_EQ(vmctl("list").err, staleLine);
  const Answer json = vmctl("list -o json");
  EXPECT_EQ(json.err, staleLine);
  EXPECT_THAT(json.out, testing::StartsWith("{\n  \"version\": 1,\n  \"stale\": true,\n"));
}

TEST_F(ListVerb, ShowsTheConfigurationWhenThereIsNoStatusYet) {
  putVm("db", false);
  daemonRuns_ = false;
  hasStatus_ = false;
  EXPECT_EQ(vmctl("list"), (Answer{0,
                                   "NAME  WANTED   ACTUAL  SINCE  WHY                      NEXT\n"
                                   "db    stopped  -       -      vmagentd is not running  "
                                   "systemctl start vmagentd\n",
                                   staleLine}));
}

TEST_F(ListVerb, ShowsWhenWhatComesNextIs) {
  putVm("db", false);
  put("vmProcess", "db",
      R"({"process":"ending","pid":12,"wanted":"stopped","actual":"stopping","severity":"busy",)"
      R"("since":1700000997,"why":"it was asked to shut down","whyShort":"asked to shut down",)"
      R"("nextKind":"auto","next":"is switched off","nextShort":"off","nextAt":1700001012})");
  EXPECT_EQ(vmctl("list").out,
            "NAME  WANTED   ACTUAL    SINCE  WHY                        NEXT\n"
            "db    stopped  stopping  3s     it was asked to shut down  is switched off in 12s\n");
  isTerminal_ = true;
  environment_["NO_COLOR"] = "1";
  columns_ = 80;
  EXPECT_EQ(vmctl("list").out,
            "NAME  WANTED   ACTUAL    SINCE  WHY                 NEXT\n"
            "db    stopped  stopping  3s     asked to shut down  off in 12s\n");
}

TEST_F(ListVerb, ShowsWhatToTypeNext) {
  putVm("db", true);
  put("vmProcess", "db",
      R"({"wanted":"running","actual":"crashed","severity":"bad","since":1700000750,)"
      R"("why":"QEMU crashed with signal 11","whyShort":"QEMU crashed, signal 11",)"
      R"("nextKind":"command","nextShort":"restart","nextCommand":"vmctl restart db"})");
  EXPECT_EQ(vmctl("list").out,
            "NAME  WANTED   ACTUAL   SINCE  WHY                          NEXT\n"
            "db    running  crashed  4m10s  QEMU crashed with signal 11  vmctl restart db\n");
  isTerminal_ = true;
  environment_["NO_COLOR"] = "1";
  columns_ = 60;
  EXPECT_EQ(vmctl("list").out,
            "NAME  WANTED   ACTUAL   SINCE  WHY                   NEXT\n"
            "db    running  crashed  4m10s  QEMU crashed, sig...  restart\n");
}

TEST_F(ListVerb, TellsOfARowThatCannotBeReadAndShowsTheOthers) {
  putVm("db", false);
  put("vmConfig", "web1", R"({"enabled":"yes"})");
  const std::string complaint =
      "vmctl: web1: its configuration cannot be read: enabled: 'yes' is refused: must be true or "
      "false, without quotes\n";
  EXPECT_EQ(vmctl("list"),
            (Answer{0,
                    "NAME  WANTED   ACTUAL  SINCE  WHY                                            "
                    "                   NEXT\n"
                    "db    stopped  -       -      -                                              "
                    "                   -\n"
                    "web1  ?        -       -      enabled: 'yes' is refused: must be true or "
                    "false, without quotes  -\n",
                    complaint}));
  EXPECT_THAT(vmctl("list -o json").out, HasSubstr("\"name\": \"web1\",\n      \"wanted\": null,"));
}

TEST_F(ListVerb, ShowsOneThatWasRemovedUntilItsProcessIsGone) {
  putVm("web1", false);
  for (const char* name : {"a", "old", "z"}) putRunning(name);
  put("vmProcess", "old", R"({"process":"ending","pid":12,"restarts":0})");
  put("vmProblem", "old", R"({"problem":"still here","since":1,"source":"guest"})");
  EXPECT_EQ(vmctl("list").out,
            "NAME  WANTED   ACTUAL   SINCE  WHY         NEXT\n"
            "a     gone     running  1m00s  -           -\n"
            "old   gone     -        -      still here  -\n"
            "web1  stopped  -        -      -           -\n"
            "z     gone     running  1m00s  -           -\n");
  EXPECT_THAT(
      vmctl("list -o json").out,
      HasSubstr("\"name\": \"old\",\n      \"removed\": true,\n      \"wanted\": \"gone\","));
  for (const char* name : {"a", "old", "z"}) del("vmProcess", name);
  EXPECT_EQ(vmctl("list -o name").out, "web1\n");
}

TEST_F(ListVerb, ShowsWhatTheDaemonTakesARowForThatLeavesMemoryOut) {
  put("vmConfig", "web1", R"({"diskImage":"/images/web.iso"})");
  EXPECT_THAT(vmctl("list -o wide").out, HasSubstr("  256M  "));
}

TEST_F(ListVerb, IgnoresStatusOfAVmThatIsNotConfiguredAndHasNoProcess) {
  putRunning("old");
  put("vmProcess", "old", R"({"process":"none","pid":0,"restarts":3})");
  putVm("web1", false);
  EXPECT_EQ(vmctl("list -o name").out, "web1\n");
}

TEST_F(ListVerb, WritesNoControlCharactersOfOthersToATerminal) {
  putVm("db", true);
  put("vmProblem", "db", R"({"problem":"bad\u001b[2J\nline","since":1,"source":"qemu"})");
  EXPECT_THAT(vmctl("list").out, HasSubstr("bad\\x1b[2J\\x0aline"));
}

TEST_F(ListVerb, ShowsNamesOfOthersAsTheyAre) {
  const std::string name = "\u202egnp\xff" + std::string(200, 'x');
  put("vmConfig", rt::String(name), "[]");
  putVm("web1", false);
  const std::string shown = "\\u202egnp\\xff" + std::string(200, 'x');
  EXPECT_THAT(vmctl("list").out, HasSubstr("\n" + shown + "  "));
  EXPECT_THAT(vmctl("list").out, HasSubstr("\nweb1  stopped  -       -      -"));
  EXPECT_THAT(vmctl("list").err, HasSubstr(shown));
  EXPECT_EQ(vmctl("list -o name").out, "web1\n" + shown + "\n");
  EXPECT_THAT(vmctl("list -o json").out, HasSubstr("\"name\": \"\\u202egnp\xef\xbf\xbd"
                                                   "x"));
}

TEST_F(ListVerb, CutsLinesOnATerminalOnly) {
  putThree();
  columns_ = 50;
  EXPECT_THAT(vmctl("list").out, HasSubstr("diskImage: '/images/web.iso' is refused  -\n"));
  isTerminal_ = true;
  environment_["NO_COLOR"] = "1";
  EXPECT_EQ(vmctl("list").out,
            "NAME   WANTED   ACTUAL   SINCE  WHY           NEXT\n"
            "db     stopped  stopped  1m00s  -             -\n"
            "probe  running  -        -      diskImage...  -\n"
            "web1   running  running  1m00s  -             -\n");
}

TEST_F(ListVerb, HasColoursOnATerminalUnlessNoneAreWanted) {
  putThree();
  EXPECT_THAT(vmctl("list").out, Not(HasSubstr("\x1b")));
  isTerminal_ = true;
  EXPECT_THAT(vmctl("list").out, HasSubstr("\x1b[32mrunning\x1b[0m"));
  environment_["NO_COLOR"] = "1";
  EXPECT_THAT(vmctl("list").out, Not(HasSubstr("\x1b")));
  environment_["NO_COLOR"] = "";
  EXPECT_THAT(vmctl("list").out, HasSubstr("\x1b[31mdiskImage"));
}

// why

TEST_F(ListVerb, WhyTellsWhatIsSoWhyAndWhatToType) {
  putVm("web1", true);
  put("vmProcess", "web1",
      R"({"wanted":"running","actual":"crashed","severity":"bad","since":1700000750,)"
      R"("reason":"qemu-crashed","why":"QEMU crashed with signal 11","whyShort":"crashed",)"
      R"("nextKind":"command","nextCommand":"vmctl restart web1","endCause":"qemu-crashed",)"
      R"("endText":"QEMU crashed with signal 11","endAt":1700000750})");
  const Answer answer = vmctl("why web1");
  EXPECT_EQ(answer.exit, 1) << "it is not as it is wanted";
  EXPECT_THAT(answer.out,
              testing::MatchesRegex("web1 is wanted running, and has crashed, for 4m10s \\(since "
                                    "2023-11-14 .*\\):\n  QEMU crashed with signal 11\n"
                                    "Next: nothing by itself. To type: vmctl restart web1\n"));
}

TEST_F(ListVerb, WhyTellsNoNextStepOfBeforeTheRowThatIsTheLatest) {
  putVm("web1", true);
  put("vmProcess", "web1",
      R"({"process":"none","wanted":"stopped","actual":"stopped","severity":"ok","since":1700000940,)"
      R"("nextKind":"command","nextCommand":"vmctl start web1"})");
  const Answer answer = vmctl("why web1");
  EXPECT_THAT(answer.out, HasSubstr("Next: vmagentd takes up what is wanted now\n"));
  EXPECT_THAT(answer.out, Not(HasSubstr("vmctl start web1")));
}

TEST_F(ListVerb, WhyTellsOfTheLastEndOfOneThatIsAsItIsWanted) {
  putVm("web1", true);
  put("vmProcess", "web1",
      R"({"wanted":"running","actual":"running","severity":"ok","since":1700000940,)"
      R"("endCause":"killed","endText":"QEMU was killed by signal 9","endAt":1700000930})");
  const Answer answer = vmctl("why web1");
  EXPECT_EQ(answer.exit, 0);
  EXPECT_THAT(answer.out, HasSubstr("web1 is wanted running and is running, for 1m00s (since "));
  EXPECT_THAT(answer.out, HasSubstr("Last end: QEMU was killed by signal 9 (1m10s ago)\n"));
}

TEST_F(ListVerb, WhyTellsOfOneThatNothingIsKnownOf) {
  putVm("web1", true);
  EXPECT_EQ(vmctl("why web1"),
            (Answer{1, "web1 is wanted running; nothing is known of how it is\n", ""}));
  EXPECT_EQ(vmctl("why web2").exit, 3);
}

TEST_F(ListVerb, WhyIsNeverAsWantedWhereTheStatusIsOld) {
  putVm("web1", true);
  putRunning("web1");
  EXPECT_EQ(vmctl("why web1").exit, 0);
  daemonRuns_ = false;
  const Answer answer = vmctl("why web1");
  EXPECT_EQ(answer.exit, 1);
  EXPECT_THAT(answer.out, HasSubstr("web1 is wanted running, and was running when vmagentd ended"));
  EXPECT_THAT(answer.out, HasSubstr("To type: systemctl start vmagentd\n"));
  EXPECT_THAT(vmctl("why web1 -o json").out, HasSubstr("\"actual\": \"running\","));
}

TEST_F(ListVerb, WhyTellsOfOneThatWasRemovedAndOfOneWhoseRowCannotBeRead) {
  putRunning("old");
  EXPECT_THAT(vmctl("why old").out, HasSubstr("old was removed, and is running, for "));
  put("vmConfig", "web1", R"({"enabled":"yes"})");
  EXPECT_THAT(vmctl("why web1").out, HasSubstr("web1 has a row that cannot be read"));
}

TEST_F(ListVerb, CutsALongNameInItsMiddleOnANarrowTerminalOnly) {
  const std::string name = "a-name-of-" + std::string(20, 'x') + "-is-long";
  putVm(rt::String(name), false);
  EXPECT_THAT(vmctl("list").out, HasSubstr("\n" + name + "  stopped"));
  isTerminal_ = true;
  EXPECT_THAT(vmctl("list").out, HasSubstr("\na-name-of...-is-long  stopped"));
}

TEST_F(ListVerb, AgesAreNeverNegativeWhereTheClockWasSetBack) {
  putVm("web1", true);
  put("vmProcess", "web1", R"({"actual":"running","severity":"ok","since":1900000000})");
  EXPECT_THAT(vmctl("list").out, HasSubstr("running  0s "));
}

// show

TEST_F(ShowVerb, TellsAllAboutAVm) {
  putThree();
  put("vmProblem", "web1", R"({"problem":"memory changed","since":1732186123,"source":"restart"})");
  put("vmImage", "web1", R"({"diskImage":"/images/web.iso","format":"raw"})");
  EXPECT_EQ(
      vmctl("show web1"),
      (Answer{0,
              "Name:     web1\n"
              "Wanted:   running\n"
              "Actual:   running\n"
              "Since:    1m00s\n"
              "Why:      -\n"
              "Next:     -\n"
              "State:    Running\n"
              "Process:  running, pid 4711\n"
              "Console:  /dev/pts/4\n"
              "Memory:   256 MiB\n"
              "Display:  VNC, /run/vmagent/vm/web1/vnc.sock\n"
              "Disk:     /images/web.iso\n"
              "Format:   raw\n"

              "Cards:  KEY    MODEL  MAC                INTERFACE  PRESENT  LINK  SINCE  TAP\n"
              "        nic00  e1000  52:54:00:12:34:56  Vlan100    no       -     -      -\n"
              "        nic01  e1000  52:54:00:12:34:57  Vlan200    no       -     -      -\n"
              "Problem:  memory changed\n"
              "          (restart, since 2024-11-21T10:48:43Z)\n",
              ""}));
}

TEST_F(ShowVerb, TellsOfEachCardWhetherItsInterfaceIsThere) {
  putThree();
  put("interfaceStatus", "Vlan100", R"({"deviceName":"br0.100","present":true})");
  put("interfaceStatus", "Vlan200", R"({"deviceName":"br0.200","present":false})");
  EXPECT_THAT(
      vmctl("show web1").out,
      HasSubstr("INTERFACE  PRESENT  LINK  SINCE  TAP\n"
                "        nic00  e1000  52:54:00:12:34:56  Vlan100    yes      -     -      -\n"
                "        nic01  e1000  52:54:00:12:34:57  Vlan200    no       -     -      -\n"));
  daemonRuns_ = false;
  EXPECT_THAT(vmctl("show web1").out, HasSubstr("Vlan100    -        -     -      -\n"));
}

TEST_F(ShowVerb, TellsOfEachCardOfAGuestHowItIsAndSinceWhen) {
  putThree();
  put("vmCard", "web1/nic00",
      R"({"interface":"Vlan100","tap":"macvtap0","link":"noCarrier","since":1700000988})");
  put("vmCard", "web1/nic07", R"({"interface":"Vlan100","link":"up","since":1700000988})");
  put("vmCard", "web11/nic01", R"({"interface":"Vlan100","link":"up","since":1700000988})");
  EXPECT_THAT(
      vmctl("show web1").out,
      HasSubstr(
          "INTERFACE  PRESENT  LINK       SINCE  TAP\n"
          "        nic00  e1000  52:54:00:12:34:56  Vlan100    no       noCarrier  12s    "
          "macvtap0\n"
          "        nic01  e1000  52:54:00:12:34:57  Vlan200    no       -          -      -\n"));
  const std::string cards = R"("cards": [
    {
      "key": "nic00",
      "intf": "Vlan100",
      "tap": "macvtap0",
      "link": "noCarrier",
      "since": 1700000988
    },
    {
      "key": "nic01",
      "intf": "Vlan200",
      "tap": null,
      "link": null,
      "since": null
    }
  ],)";
  EXPECT_THAT(vmctl("show web1 -o json").out, HasSubstr(cards));
  const std::string list = vmctl("list -o json").out;
  EXPECT_THAT(list, HasSubstr(R"("tap": "macvtap0")"));
  EXPECT_THAT(list, testing::Not(HasSubstr("nic07"))) << "its row has none of that key";
}

TEST_F(ListVerb, TellsSinceWhenACardHasNoLine) {
  putVm("web1", true);
  putRunning("web1");
  put("vmProcess", "web1",
      R"({"process":"running","pid":4711,"wanted":"running","actual":"running","severity":"bad",)"
      R"("since":1700000940,"reason":"no-carrier","why":"nic00: Vlan100 has no carrier",)"
      R"("whyShort":"nic00: Vlan100 no line","whySubject":"nic00","whySince":1700000988,)"
      R"("nextKind":"wait","next":"when the line comes back"})");
  EXPECT_EQ(vmctl("list").out,
            "NAME  WANTED   ACTUAL   SINCE  WHY                                     NEXT\n"
            "web1  running  running  1m00s  nic00: Vlan100 has no carrier, for 12s  "
            "when the line comes back\n");
  EXPECT_EQ(vmctl("why web1").out.substr(vmctl("why web1").out.find(":\n")),
            ":\n  nic00: Vlan100 has no carrier, for 12s\n"
            "Next: it is well again when the line comes back\n");
  EXPECT_THAT(vmctl("why web1 -o json").out,
              HasSubstr("\"reason\": \"no-carrier\",\n      \"subject\": \"nic00\",\n"
                        "      \"text\": \"nic00: Vlan100 has no carrier\",\n"
                        "      \"short\": \"nic00: Vlan100 no line\",\n"
                        "      \"since\": 1700000988\n"));
  isTerminal_ = true;
  environment_["NO_COLOR"] = "1";
  columns_ = 80;
  EXPECT_EQ(vmctl("list").out,
            "NAME  WANTED   ACTUAL   SINCE  WHY                     NEXT\n"
            "web1  running  running  1m00s  nic00: Vlan100 no line  -\n");
}

TEST_F(ShowVerb, TellsWhereTheGuestsScreenIs) {
  putThree();
  machine_.accessErrors["/run/vmagent/vm/web1/vnc.sock"] = ENOENT;
  EXPECT_THAT(vmctl("show web1").out, HasSubstr("Display:  VNC, port 5901\n"));
  put("vmProcess", "web1", R"({"process":"none","pid":0})");
  EXPECT_THAT(vmctl("show web1").out, HasSubstr("Display:  VNC, vncPort 5901\n"));
  machine_.accessErrors.clear();
  EXPECT_THAT(vmctl("show web1").out, HasSubstr("Display:  VNC, vncPort 5901\n"))
      << "a socket that was left";
}

TEST_F(ShowVerb, TellsWhatIsNotSo) {
  putVm("db", false);
  EXPECT_EQ(vmctl("show db").out,
            "Name:     db\n"
            "Wanted:   stopped\n"
            "Actual:   -\n"
            "Since:    -\n"
            "Why:      -\n"
            "Next:     -\n"
            "State:    -\n"
            "Process:  none\n"
            "Console:  -\n"
            "Memory:   256 MiB\n"
            "Display:  -\n"
            "Disk:     /images/web.iso\n"
            "Format:   -\n"

            "Cards:    -\n"
            "Problem:  -\n");
}

TEST_F(ShowVerb, TellsTheMonitorsLastWord) {
  putVm("db", false);
  put("vmStatus", "db",
      R"({"enabled":false,"state":"","consolePtyPath":"","cmdStatusStr":"no\nreply"})");
  EXPECT_THAT(vmctl("show db").out, HasSubstr("Monitor:  no\\x0areply\n"));
}

TEST_F(ShowVerb, GivesOneVmInJson) {
  putVm("db", false);
  const std::string head = "{\n  \"version\": 1,\n";
  const std::string vm = R"(  "name": "db",
)" + stateJson(2, "stopped", false) +
                         R"(  "config": {
    "enabled": false,
    "diskImage": "/images/web.iso",
    "memory": 256,
    "vncPort": 0,
    "vnicConfig": {}
  },
  "format": null,
  "status": null,
  "process": {
    "process": "none",
    "pid": 0,
    "restarts": 0
  },
  "problem": null
}
)";
  EXPECT_EQ(vmctl("show db -o json"), (Answer{0, head + vm, ""}));
  daemonRuns_ = false;
  EXPECT_EQ(vmctl("show db -o json"), (Answer{0, head + "  \"stale\": true,\n" + vm, staleLine}));
}

TEST_F(ShowVerb, TellsOfOneThatWasRemovedUntilItsProcessIsGone) {
  putRunning("old");
  put("vmProcess", "old", R"({"process":"ending","pid":12,"restarts":0})");
  EXPECT_EQ(vmctl("show old"), (Answer{0,
                                       "Name:     old\n"
                                       "Wanted:   gone\n"
                                       "Actual:   -\n"
                                       "Since:    -\n"
                                       "Why:      -\n"
                                       "Next:     -\n"
                                       "State:    Running\n"
                                       "Process:  ending, pid 12\n"
                                       "Console:  /dev/pts/4\n"
                                       "Problem:  -\n",
                                       ""}));
  EXPECT_THAT(vmctl("show old -o json").out,
              HasSubstr("\"name\": \"old\",\n  \"removed\": true,\n  \"wanted\": \"gone\","));
  del("vmProcess", "old");
  EXPECT_EQ(vmctl("show old").exit, 3);
}

TEST_F(ShowVerb, SuggestsTheVmThatWasMeant) {
  putThree();
  EXPECT_EQ(vmctl("show web2"),
            (Answer{3, "", "vmctl: web2: there is no such VM; did you mean 'web1'?\n"}));
  EXPECT_EQ(vmctl("show somethingelse"),
            (Answer{3, "", "vmctl: somethingelse: there is no such VM\n"}));
  EXPECT_EQ(vmctl(std::vector<rt::String>{"show", ""}),
            (Answer{3, "", "vmctl: : there is no such VM\n"}));
}

}  // namespace
}  // namespace ctl
