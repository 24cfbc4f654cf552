// Virtual machines that are in no configuration, and whose guests go on.
#include "ctl/fakes/VmctlFixture.h"

namespace ctl {
namespace {

using fakes::Answer;
using testing::HasSubstr;
using testing::Not;

constexpr const char* waysOut =
    "vmctl: web1: is in no configuration, though its guest runs: 'vmctl apply' what has it, or end "
    "it with 'vmctl remove web1 --force'\n";

class UnknownVm : public fakes::VmctlFixture {
 protected:
  // As the daemon shows it.
  UnknownVm() {
    put("vmProcess", "web1",
        R"({"process":"running","pid":4711,"restarts":2,"unknown":"4711.88"})");
    put("vmProblem", "web1",
        R"({"problem":"not configured, and why","since":1732186123,"source":"config"})");
    inIsTerminal_ = true;
  }
  // Its guest has ended.
  void end() {
    del("vmProcess", "web1");
    del("vmProblem", "web1");
  }
};

TEST_F(UnknownVm, IsListedAmongTheOthersWithWhatIsWrong) {
  putVm("db", false);
  putVm("web2", false);
  EXPECT_EQ(vmctl("list"), (Answer{0,
                                   "NAME  WANTED   ACTUAL  SINCE  WHY                      NEXT\n"
                                   "db    stopped  -       -      -                        -\n"
                                   "web1  unknown  -       -      not configured, and why  -\n"
                                   "web2  stopped  -       -      -                        -\n",
                                   ""}));
  EXPECT_EQ(vmctl("list -o name").out, "db\nweb1\nweb2\n");
  EXPECT_THAT(vmctl("list -o wide").out,
              HasSubstr("web1  unknown  -       -      not configured, and why  -     4711  -"));
}

TEST_F(UnknownVm, IsShown) {
  EXPECT_EQ(vmctl("show web1").out,
            "Name:     web1\n"
            "Wanted:   unknown\n"
            "Actual:   -\n"
            "Since:    -\n"
            "Why:      not configured, and why\n"
            "Next:     -\n"
            "State:    -\n"
            "Process:  running, pid 4711\n"
            "Console:  -\n"
            "Problem:  not configured, and why\n"
            "          (config, since 2024-11-21T10:48:43Z)\n");
}

TEST_F(UnknownVm, HasNoConfigurationInJson) {
  EXPECT_THAT(vmctl("show web1 -o json").out, HasSubstr("\"config\": null"));
  const std::string all = vmctl("list -o json").out;
  EXPECT_THAT(all, HasSubstr("\"unknown\": true"));
  EXPECT_THAT(all, HasSubstr("\"source\": \"config\""));
  // There is nothing in it to apply.
  files_["vms.json"] = all;
  EXPECT_EQ(vmctl("apply -f vms.json").exit, 0);
  EXPECT_EQ(doc("vmConfig", "web1"), "none");
}

TEST_F(UnknownVm, IsNoneOnceItIsConfiguredOrItsGuestHasEnded) {
  putVm("web1", true);
  EXPECT_THAT(vmctl("list").out, HasSubstr("web1  running"));
  del("vmConfig", "web1");
  end();
  EXPECT_EQ(vmctl("list").out, "");
  EXPECT_EQ(vmctl("show web1").exit, 3);
}

// One that was removed, and has not ended yet.
TEST_F(UnknownVm, IsNoneWithoutTheDaemonsWord) {
  put("vmProcess", "web1", R"({"process":"ending","pid":4711,"restarts":2,"unknown":""})");
  EXPECT_THAT(vmctl("list").out, HasSubstr("web1  gone"));
}

TEST_F(UnknownVm, IsOnlyChangedOrSwitchedWithTheWaysOut) {
  for (const char* const command :
       {"stop web1", "enable web1", "restart web1", "set web1 memory=512", "edit web1"})
    EXPECT_EQ(vmctl(command), (Answer{4, "", waysOut})) << command;
}

TEST_F(UnknownVm, IsToldOfToWhoStopsAll) {
  putVm("web2", true);
  EXPECT_EQ(vmctl("stop --all"), (Answer{4, "", std::string("web2: disabled\n") + waysOut}));
}

TEST_F(UnknownVm, EndsByForceOnlyAndNoOtherGuestIsMeant) {
  EXPECT_EQ(vmctl("remove web1"),
            (Answer{4, "",
                    "vmctl: web1: is in no configuration, and its guest runs: --force ends it\n"}));
  EXPECT_EQ(doc("vmIntent", "web1"), "none");
  EXPECT_EQ(vmctl("remove web1 --force"),
            (Answer{0, "", "web1: removed; its guest is being ended\n"}));
  EXPECT_EQ(doc("vmIntent", "web1"), R"({"restart":2,"remove":"4711.88"})");
}

TEST_F(UnknownVm, IsWaitedForUntilItsGuestHasEnded) {
  put("vmIntent", "web1", R"({"restart":5})");
  onWait([&] {
    put("vmProcess", "web1", R"({"process":"ending","pid":4711,"restarts":2,"unknown":""})");
  });
  onWait([&] { end(); });
  EXPECT_EQ(vmctl("remove web1 --force --wait"),
            (Answer{0, "", "web1: removed, and no process is left\n"}));
  EXPECT_EQ(doc("vmIntent", "web1"), R"({"restart":5,"remove":"4711.88"})");
}

TEST_F(UnknownVm, IsNotEndedByForceThatIsConfiguredMeanwhile) {
  beforeCommit([&] { putVm("web1", true); });
  EXPECT_EQ(vmctl("remove web1 --force").exit, 0);
  EXPECT_EQ(doc("vmConfig", "web1"), "none") << "it was removed as any other";
  EXPECT_EQ(doc("vmIntent", "web1"), "none");
}

TEST_F(UnknownVm, IsNotAddedSoThatItsGuestWouldEnd) {
  EXPECT_EQ(vmctl("add web1 --disk /images/web.iso"),
            (Answer{4, "",
                    "vmctl: web1: its guest runs, though in no configuration, and would end: say "
                    "--enabled to keep it, or 'vmctl remove web1 --force' first\n"}));
  EXPECT_EQ(vmctl("add web1 --disk /images/web.iso --enabled").exit, 0);
  EXPECT_THAT(doc("vmConfig", "web1"), HasSubstr("\"enabled\":true"));
}

TEST_F(UnknownVm, IsWaitedFor) {
  onWait([&] { put("vmProcess", "web1", R"({"process":"none","pid":0,"restarts":2})"); });
  EXPECT_EQ(vmctl("wait web1 --for process=none").exit, 0);
}

TEST_F(UnknownVm, IsWaitedForUntilItRuns) {
  onWait([&] { putVm("web1", true); });
  onWait([&] { putRunning("web1"); });
  EXPECT_EQ(vmctl("wait web1 --for state=Running").exit, 0);
}

TEST_F(UnknownVm, HasItsConsoleWhereItsKeeperShowsIt) {
  EXPECT_EQ(vmctl("console web1"),
            (Answer{0, "", "web1: this is its console; Ctrl-] leaves it\n\nweb1: left\n"}));
  EXPECT_EQ(joinedSocket_, "/run/vmagent/vm/web1/console.sock");
  vmctl("console web1 --view");
  EXPECT_EQ(viewedSocket_, "/run/vmagent/vm/web1/console.sock");
}

// Its daemon goes on, and lost only its row.
TEST_F(UnknownVm, HasItsConsoleAsBeforeWhereTheAgentKnowsIt) {
  put("vmStatus", "web1",
      R"({"enabled":true,"state":"Running","consolePtyPath":"pty:/dev/pts/7","cmdStatusStr":""})");
  EXPECT_EQ(vmctl("console web1").exit, 0);
  EXPECT_EQ(heldPty_, "/dev/pts/7");
}

TEST_F(UnknownVm, IsWatched) {
  onWait([&] { end(); });
  onWait([&] { closeOutput(); });
  EXPECT_THAT(vmctl("watch").out,
              testing::AllOf(HasSubstr("web1  unknown"), HasSubstr("web1  gone")));
}

TEST_F(UnknownVm, IsCompleted) { EXPECT_EQ(vmctl("__complete remove w").out, "web1\n"); }

}  // namespace
}  // namespace ctl
