// The configuration as one file, and back.
#include "ctl/fakes/VmctlFixture.h"

namespace ctl {
namespace {

using fakes::Answer;
using testing::HasSubstr;
using testing::Not;

class BackupVerb : public fakes::VmctlFixture {
 protected:
  static rt::String config(int memory, bool isEnabled = false, int port = 0) {
    return R"({"enabled":)" + rt::String(isEnabled ? "true" : "false") +
           R"(,"diskImage":"/images/web.iso","memory":)" + std::to_string(memory) +
           R"(,"vncPort":)" + std::to_string(port) + R"(,"vnicConfig":{}})";
  }
  void keep(const rt::String& table, const rt::String& key, const rt::String& doc) {
    backup_[{table, key}] = doc;
  }
};
class RestoreVerb : public BackupVerb {};

TEST_F(BackupVerb, WritesANewFileAndSaysWhatItHas) {
  keep("vmConfig", "web1", config(256));
  EXPECT_EQ(vmctl("backup /b/config.db"),
            (Answer{0, "", "/b/config.db: the configuration of 1 VM\n"}));
  EXPECT_EQ(files_["/b/config.db"], "/var/lib/vmagent");
  EXPECT_EQ(modes_["/b/config.db"], 0600U);
}

TEST_F(BackupVerb, WritesOverNoFileWithoutForce) {
  files_["/b/config.db"] = "another";
  EXPECT_EQ(vmctl("backup /b/config.db").exit, 1);
  EXPECT_EQ(files_["/b/config.db"], "another");
  EXPECT_EQ(vmctl("backup /b/config.db --force").exit, 0);
  EXPECT_EQ(files_["/b/config.db"], "/var/lib/vmagent");
}

TEST_F(RestoreVerb, MakesVmsWhatTheyWereAndLeavesTheOthers) {
  putVm("web1", true);
  putVm("same", true);
  putVm("new", true);
  const std::string same = doc("vmConfig", "same");
  keep("vmConfig", "web1", config(512, true));
  keep("vmConfig", "same", same);
  keep("vmConfig", "gone", config(256));
  EXPECT_EQ(vmctl("restore /b"), (Answer{0, "",
                                         "gone: added\n"
                                         "web1: changed: memory=512 (takes effect at the next "
                                         "start)\n"}));
  EXPECT_THAT(doc("vmConfig", "web1"), HasSubstr("512"));
  EXPECT_NE(doc("vmConfig", "new"), "none");
  EXPECT_EQ(vmctl("restore /b").err, "nothing to change\n");
}

TEST_F(RestoreVerb, WritesNoRowThatIsAsItWas) {
  putVm("same", true);
  keep("vmConfig", "same", doc("vmConfig", "same"));
  keep("vmConfig", "gone", config(256));
  int commits = 0;
  beforeCommit([&] {
    ++commits;
    put("vmStatus", "mark", "{}");
  });
  EXPECT_EQ(vmctl("restore /b").exit, 0);
  EXPECT_EQ(commits, 1);
  EXPECT_EQ(vmctl("history same").exit, 0);
  EXPECT_THAT(vmctl("restore /b --dry-run").out, Not(HasSubstr("same")));
}

TEST_F(RestoreVerb, WithPruneRemovesWhatIsNotThere) {
  putVm("new", true);
  put("interface", "Vlan9", R"({"deviceName":"br9"})");
  EXPECT_EQ(vmctl("restore /b --prune --dry-run").out,
            "remove new, and its guest ends\ninterface Vlan9: is the device of its own name\n");
  EXPECT_NE(doc("vmConfig", "new"), "none");
  EXPECT_EQ(vmctl("restore /b --prune").exit, 0);
  EXPECT_EQ(doc("vmConfig", "new"), "none");
  EXPECT_EQ(doc("interface", "Vlan9"), "none");
}

TEST_F(RestoreVerb, BringsBackFormatsTheHostsOwnRowsAndInterfaces) {
  keep("vmConfig", "web1", config(256));
  keep("vmImage", "web1", R"({"diskImage":"/images/web.iso","format":"qcow2"})");
  keep("vmLimits", "web1", R"({"cpuWeight":50})");
  keep("vmPolicy", "web1", R"({"restart":"always"})");
  keep("vmIntent", "web1", R"({"restart":7})");
  keep("interface", "Vlan100", R"({"deviceName":"br0.100"})");
  const Answer answer = vmctl("restore /b");
  EXPECT_EQ(answer.exit, 0) << answer;
  EXPECT_THAT(answer.err, HasSubstr("interface Vlan100: is device 'br0.100'\n"));
  EXPECT_THAT(doc("vmImage", "web1"), HasSubstr(R"("format":"qcow2")"));
  EXPECT_THAT(doc("vmLimits", "web1"), HasSubstr(R"("cpuWeight":50)"));
  EXPECT_THAT(doc("vmPolicy", "web1"), HasSubstr(R"("restart":"always")"));
  EXPECT_EQ(doc("interface", "Vlan100"), R"({"deviceName":"br0.100"})");
  EXPECT_EQ(doc("vmIntent", "web1"), "none") << "a restart that was asked for then is not again";
  EXPECT_EQ(vmctl("restore /b").err, "nothing to change\n");
}

TEST_F(RestoreVerb, JudgesAsApplyDoesAndWritesAllOrNothing) {
  putVm("web1", false);
  keep("vmConfig", "web1", config(512));
  keep("vmConfig", "web2", config(256, false, 17));
  keep("vmConfig", "web3", R"({"memory":"much"})");
  keep("interface", "Vlan100", R"({"deviceName":"a/b"})");
  const Answer answer = vmctl("restore /b");
  EXPECT_EQ(answer.exit, 5);
  EXPECT_THAT(answer.err, HasSubstr("web2: vncPort"));
  EXPECT_THAT(answer.err, HasSubstr("web3: memory"));
  EXPECT_THAT(doc("vmConfig", "web1"), HasSubstr("256"));
  backup_.erase({"vmConfig", "web2"});
  backup_.erase({"vmConfig", "web3"});
  EXPECT_THAT(vmctl("restore /b").err, HasSubstr("Vlan100: deviceName"));
  EXPECT_THAT(doc("vmConfig", "web1"), HasSubstr("256"));
}

TEST_F(RestoreVerb, OfAFileThatCannotBeUsedSaysWhy) {
  backupError_ = statedb::Trouble::newer;
  EXPECT_EQ(vmctl("restore /b"), (Answer{6, "", "vmctl: /b cannot be used\n"}));
}

}  // namespace
}  // namespace ctl
