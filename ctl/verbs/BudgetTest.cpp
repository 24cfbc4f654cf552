// What an operator is told of the machine's memory.
#include "ctl/fakes/VmctlFixture.h"

namespace ctl {
namespace {

using fakes::Answer;
using testing::HasSubstr;
using testing::Not;

// Guests may have 1,000 MiB, of which 600 are given; one of 256 MiB needs 358.
class Budget : public fakes::VmctlFixture {
 protected:
  Budget() {
    daemonSays("");
    machine_.texts["/groups/memory.current"] = "104857600\n";
    machine_.texts["/proc/meminfo"] = "MemAvailable: 8388608 kB\n";
  }

  void daemonSays(const std::string& more) {
    daemonSays_ =
        R"("guestsGroup":"/groups","memoryCap":1000,"memoryReserve":100,"memoryGiven":600,)"
        R"("guestsCpu":"3")" +
        more;
  }
};

constexpr const char* cap =
    "web1: warning: it would not be started now: memory: 613 MiB would make 1,213 of all guests; "
    "they may have 1,000\n";

TEST_F(Budget, WarnsOfAVmThatWouldNotBeStarted) {
  EXPECT_EQ(vmctl("add web1 --disk /images/web.iso --memory 511 --enabled"),
            (Answer{0, "", "vmctl: " + std::string(cap) + "web1: added and enabled\n"}));
  EXPECT_THAT(vmctl("set web1 memory=256").err, Not(HasSubstr("warning")));
  EXPECT_THAT(vmctl("set web1 memoryReserve=100").err,
              HasSubstr("memory: 458 MiB would make 1,058"));
  vmctl("disable web1");
  EXPECT_THAT(vmctl("set web1 memoryReserve=200").err, Not(HasSubstr("warning")));
  EXPECT_THAT(vmctl("enable web1").err, HasSubstr("memory: 558 MiB would make 1,158"));
}

TEST_F(Budget, SaysSoBeforeAnythingIsWritten) {
  EXPECT_EQ(vmctl("add web1 --disk /images/web.iso --memory 511 --enabled --dry-run"),
            (Answer{0, "", "vmctl: " + std::string(cap) + "web1: would be added and enabled\n"}));
  EXPECT_EQ(doc("vmConfig", "web1"), "none");
  putVm("web1", false);
  EXPECT_EQ(vmctl("enable web1 --dry-run"), (Answer{0, "", "web1: would be enabled\n"}));
  EXPECT_EQ(vmctl("set web1 enabled=true memory=511 --dry-run"),
            (Answer{0, "", "vmctl: " + std::string(cap) + "web1: would be changed\n"}));
  EXPECT_THAT(doc("vmConfig", "web1"), HasSubstr(R"("enabled":false)"));
  EXPECT_THAT(doc("vmConfig", "web1"), HasSubstr("256"));
}

TEST_F(Budget, RefusesInADryRunWhatItWouldRefuse) {
  EXPECT_EQ(vmctl("add web1 --disk /images/web.iso --memory 0 --dry-run").exit, 5);
}

TEST_F(Budget, CountsWhatAGuestThatRunsWouldGiveBack) {
  putVm("web1", true);
  putRunning("web1");
  EXPECT_THAT(vmctl("set web1 memory=600 --dry-run").err, Not(HasSubstr("warning")));
  EXPECT_THAT(vmctl("set web1 memory=700").err, HasSubstr("would not be started now"));
}

TEST_F(Budget, KnowsWhatAnEmulatedGuestNeeds) {
  daemonSays(R"(,"emulates":true)");
  EXPECT_THAT(vmctl("add web1 --disk /images/web.iso --enabled --memory 256 --dry-run").err,
              HasSubstr("438 MiB would make 1,038"));
}

TEST_F(Budget, SaysNothingWhereNothingBoundsGuests) {
  daemonSays_ = R"("memoryCap":1000,"memoryGiven":0,"guestsTrouble":"it is old")";
  EXPECT_THAT(vmctl("add web1 --disk /images/web.iso --enabled --memory 5000").err,
              Not(HasSubstr("memory")));
  EXPECT_THAT(vmctl("doctor").out,
              HasSubstr("warning  limits: nothing bounds what guests take: it is old\n"));
}

TEST_F(Budget, IsShownByTheDoctor) {
  EXPECT_THAT(
      vmctl("doctor").out,
      HasSubstr("ok       limits: guests may have 1,000 MiB and 3 processors; given are 600 "
                "MiB, used 100 MiB; 100 MiB are the machine's reserve, of 8,192 MiB "
                "available\n"));
}

}  // namespace
}  // namespace ctl
