// What somebody else needs to see who is to help.
#include "ctl/fakes/VmctlFixture.h"

namespace ctl {
namespace {

using fakes::Answer;
using testing::HasSubstr;
using testing::Not;

class BundleVerb : public fakes::VmctlFixture {
 protected:
  BundleVerb() {
    putVm("web1", true);
    putRunning("web1");
    machine_.texts["/run/vmagent/vm/web1/shim.log"] = "qemu: hello\n";
    machine_.texts["/run/vmagent/vm/web1/shim.log.1"] = "qemu: before\n";
    machine_.texts["/run/vmagent/vm/web1/console.log"] = "login: secret\n";
    machine_.texts["/run/vmagent/vm/.users"] = "";
    machine_.texts["/sys/fs/cgroup/vmagent/guests/vm-web1.256/memory.max"] = "300\n";
    machine_.programs["ip -details -statistics link"] = {0, "7: macvtap0@eth0\n"};
    machine_.programs
        ["journalctl --no-pager --output=short-iso-precise --lines 5000 "
         "--unit=vmagentd --unit=vmagent-guests"] = {0, "vmagentd: ready\n"};
  }
};

TEST_F(BundleVerb, HasWhatIsSoAndWhatHappened) {
  const Answer answer = vmctl("bundle /b.tar.gz");
  EXPECT_EQ(answer.exit, 0) << answer;
  const std::pair<const char*, const char*> parts[] = {
      {"version.json", "databaseFormat"},
      {"doctor.txt", "QEMU"},
      {"list.json", R"("name": "web1")"},
      {"why.txt", "web1 is wanted running"},
      {"events.json", ""},
      {"top.json", R"("guests":[{"name":"web1")"},
      {"metrics.txt", "vmagent_up 1"},
      {"config.rows", R"({"table":"vmConfig","key":"web1","revision":)"},
      {"status.rows", R"({"table":"vmProcess","key":"web1","revision":)"},
      {"vm.web1.shim.log", "hello"},
      {"vm.web1.shim.log.1", "before"},
      {"journal.txt", "ready"},
      {"links.txt", "macvtap0"},
      {"groups.txt", "== /sys/fs/cgroup/vmagent/guests/vm-web1.256/memory.max\n300\n"},
      {"machine.txt", "6.1.0-44-amd64"}};
  for (const auto& [name, text] : parts) {
    ASSERT_TRUE(packed_.contains(name)) << name;
    EXPECT_THAT(packed_[name], HasSubstr(text)) << name;
  }
}

TEST_F(BundleVerb, HasNothingOfWhatGuestsWrote) {
  vmctl("bundle /b.tar.gz");
  for (const auto& [name, text] : packed_) {
    EXPECT_THAT(name, Not(HasSubstr("console"))) << name;
    EXPECT_THAT(text, Not(HasSubstr("secret"))) << name;
  }
}

TEST_F(BundleVerb, SaysWhatIsInItAndIsItsOwnersAlone) {
  const Answer answer = vmctl("bundle");
  EXPECT_THAT(answer.out, HasSubstr("       12  vm.web1.shim.log\n"));
  EXPECT_THAT(answer.out, HasSubstr("  contents.txt\n"));
  EXPECT_THAT(packed_["contents.txt"], HasSubstr("12\tvm.web1.shim.log\n"));
  EXPECT_THAT(answer.err, HasSubstr("vmagent-20231114-223000.tar.gz: written"));
  EXPECT_EQ(files_["vmagent-20231114-223000.tar.gz"], "vmagent-20231114-223000");
  EXPECT_EQ(modes_["vmagent-20231114-223000.tar.gz"], 0600U);
  EXPECT_EQ(vmctl("bundle vmagent-20231114-223000.tar.gz").exit, 1);
}

TEST_F(BundleVerb, WithADamagedDatabaseHasTheRestAndSaysSo) {
  configError_ = statedb::Trouble::corrupt;
  daemonListens_ = false;
  const Answer answer = vmctl("bundle /b.tar.gz");
  EXPECT_EQ(answer.exit, 0) << answer;
  EXPECT_THAT(answer.err, HasSubstr("parts could not be made"));
  for (const char* const name : {"list.json.err", "config.rows.err", "metrics.txt.err"})
    EXPECT_THAT(packed_[name], HasSubstr("config.db cannot be used")) << name;
  EXPECT_THAT(packed_["status.rows"], HasSubstr("vmProcess"));
  EXPECT_THAT(packed_["vm.web1.shim.log"], HasSubstr("hello"));
  EXPECT_THAT(packed_["doctor.txt"], HasSubstr("QEMU"));
}

TEST_F(BundleVerb, WithoutADaemonAndItsStatusHasTheRest) {
  hasStatus_ = daemonRuns_ = daemonListens_ = false;
  EXPECT_EQ(vmctl("bundle /b.tar.gz").exit, 0);
  EXPECT_THAT(packed_["status.rows.err"], HasSubstr("does not exist"));
  EXPECT_THAT(packed_["list.json"], HasSubstr("web1"));
  EXPECT_THAT(packed_["list.json.err"], HasSubstr("vmagentd is not running"));
}

TEST_F(BundleVerb, SaysOfAProgramThatItCouldNotBeRun) {
  machine_.programs.erase("ip -details -statistics link");
  vmctl("bundle /b.tar.gz");
  EXPECT_EQ(packed_["links.txt.err"], "ip could not be run\n");
}

// What a part has written must not reach the terminal, nor what comes after it the part.
TEST_F(BundleVerb, LeavesTheOutputsAsTheyWere) {
  isTerminal_ = true;
  const Answer answer = vmctl("bundle /b.tar.gz");
  EXPECT_THAT(answer.out, Not(HasSubstr("vmagent_up")));
  EXPECT_THAT(packed_["doctor.txt"], Not(HasSubstr("\x1b[")));
  EXPECT_THAT(answer.out, HasSubstr("metrics.txt\n"));
}

}  // namespace
}  // namespace ctl
