#include "ctl/fakes/VmctlFixture.h"

namespace ctl {
namespace {

using fakes::Answer;
using testing::HasSubstr;
using testing::Not;

constexpr const char* config =
    R"({"enabled":false,"diskImage":"/images/web.qcow2","memory":512,"vncPort":0,)"
    R"("vnicConfig":{"nic00":{"model":"e1000","macAddr":"52:54:00:00:00:01","intfName":"Vlan1"}}})";
constexpr const char* image = R"({"diskImage":"/images/web.qcow2","format":"qcow2"})";

class UndeleteVerb : public fakes::VmctlFixture {
 protected:
  UndeleteVerb() {
    put("vmConfig", "web1", config);
    put("vmImage", "web1", image);
    put("vmLimits", "web1", R"({"cpuMax":"0.5"})");
    put("vmPolicy", "web1", R"({"restart":"always"})");
  }

  // The names of those that could be brought back.
  std::string removed() { return vmctl("undelete -o name").out; }
};

TEST_F(UndeleteVerb, BringsBackTheVmWithAllThatWasSaidOfIt) {
  vmctl("rm web1");
  EXPECT_EQ(doc("vmConfig", "web1"), "none");
  EXPECT_THAT(vmctl("undelete web1").err, HasSubstr("web1: brought back, disabled\n"));
  EXPECT_EQ(doc("vmConfig", "web1"), config);
  EXPECT_EQ(doc("vmImage", "web1"), image);
  EXPECT_THAT(doc("vmLimits", "web1"), HasSubstr(R"("cpuMax":"0.5")"));
  EXPECT_THAT(doc("vmPolicy", "web1"), HasSubstr(R"("restart":"always")"));
  EXPECT_EQ(removed(), "") << "it can be brought back once";
}

TEST_F(UndeleteVerb, ShowsWhatWasRemovedWhenAndByWhom) {
  EXPECT_EQ(vmctl("undelete"), (Answer{0, "", "no VM was removed\n"}));
  putVm("db1", false);
  vmctl("rm db1");
  time_ += 90'000;
  vmctl("rm web1");
  EXPECT_THAT(vmctl("undelete").out, testing::MatchesRegex("NAME  REMOVED +BY\n"
                                                           "web1  [0-9:]+ +op1\n"
                                                           "db1   [-0-9]+ [0-9:]+ +op1\n"));
  EXPECT_THAT(vmctl("undelete -o json").out, HasSubstr("\"by\": \"op1\""));
}

TEST_F(UndeleteVerb, KnowsTheLastTen) {
  for (int i = 10; i < 22; ++i) {
    putVm(("vm" + std::to_string(i)).c_str(), false);
    vmctl("rm vm" + std::to_string(i));
  }
  EXPECT_EQ(removed(), "vm21\nvm20\nvm19\nvm18\nvm17\nvm16\nvm15\nvm14\nvm13\nvm12\n");
  EXPECT_EQ(vmctl("undelete vm11"),
            (Answer{3, "",
                    "vmctl: vm11: is not among the last 10 VMs that were removed; did you mean "
                    "'vm21'?\n"}));
}

// Others may write there.
TEST_F(UndeleteVerb, CountsOnBesideAKeyBehindWhichIsNone) {
  put("removed", "999999999999", R"({"at":1,"by":"op9","vm":{"name":"none"}})");
  putVm("db1", false);
  EXPECT_EQ(vmctl("rm db1").exit, 0);
  EXPECT_EQ(vmctl("rm web1").exit, 0);
  EXPECT_EQ(removed(), "none\nweb1\ndb1\n");
}

TEST_F(UndeleteVerb, KnowsWhatAnAppliedDocumentPruned) {
  for (int i = 10; i < 22; ++i) putVm(("vm" + std::to_string(i)).c_str(), false);
  files_["none"] = R"({"version":1,"vms":[]})";
  vmctl("apply -f none --prune --dry-run");
  EXPECT_EQ(removed(), "") << "nothing was removed";
  EXPECT_EQ(vmctl("apply -f none --prune").exit, 0);
  EXPECT_EQ(removed(), "web1\nvm21\nvm20\nvm19\nvm18\nvm17\nvm16\nvm15\nvm14\nvm13\n");
  EXPECT_EQ(vmctl("undelete web1").exit, 0);
}

TEST_F(UndeleteVerb, BringsBackTheLastThatHadTheName) {
  vmctl("rm web1");
  putVm("web1", false);
  EXPECT_EQ(vmctl("undelete web1"),
            (Answer{4, "",
                    "vmctl: web1: there is a VM of that name: 'vmctl rename web1 NEW' gives that "
                    "another one\n"}));
  vmctl("rm web1");
  vmctl("undelete web1");
  EXPECT_THAT(doc("vmConfig", "web1"), HasSubstr("/images/web.iso"));
  EXPECT_EQ(removed(), "web1\n") << "the one before";
}

TEST_F(UndeleteVerb, IsJudgedAsADocumentIs) {
  vmctl("rm web1");
  vmctl("add web2 --disk /images/web.iso --nic intf=Vlan1,mac=52:54:00:00:00:01");
  EXPECT_THAT(vmctl("undelete web1"),
              testing::AllOf(testing::Field(&Answer::exit, 5),
                             testing::Field(&Answer::err, HasSubstr("of VM 'web2' has it"))));
  EXPECT_EQ(removed(), "web1\n");
}

TEST_F(UndeleteVerb, StartsWhatWasEnabled) {
  putVm("web3", true);
  EXPECT_EQ(vmctl("rm --force web3").exit, 0);
  EXPECT_EQ(vmctl("undelete web3 --dry-run").out, "add web3\n");
  EXPECT_EQ(doc("vmConfig", "web3"), "none");
  EXPECT_EQ(vmctl("undelete web3"), (Answer{0, "", "web3: brought back, enabled\n"}));
}

TEST_F(UndeleteVerb, OfARowThatCouldNotBeReadSaysWhatIsWrongWithIt) {
  put("vmConfig", "web1", R"({"memory":"much"})");
  vmctl("rm --force web1");
  EXPECT_THAT(vmctl("undelete web1").err, HasSubstr("web1: memory: 'much' is refused"));
  EXPECT_EQ(removed(), "web1\n");
}

TEST_F(UndeleteVerb, OfTwoWhoRemoveAtOnceKnowsBoth) {
  putVm("db1", false);
  beforeCommit([&] { vmctl("rm db1"); });
  EXPECT_EQ(vmctl("rm web1").exit, 0);
  EXPECT_EQ(removed(), "web1\ndb1\n");
}

// Its number is another's by then.
TEST_F(UndeleteVerb, OfOneThatAnotherBringsBackMeanwhileTakesNothingElseAway) {
  putVm("db1", false);
  vmctl("rm web1");
  beforeCommit([&] {
    vmctl("undelete web1");
    vmctl("rename web1 shop");
    vmctl("rm db1");
  });
  EXPECT_NE(vmctl("undelete web1").exit, 0);
  EXPECT_EQ(removed(), "db1\n");
}

TEST_F(UndeleteVerb, CountsOnBesideRowsOfOthersWhateverTheirNumbers) {
  for (const char* key : {"999999999999", "1000000000000", "18446744073709551615"})
    put("removed", key, R"({"vm":7})");
  putVm("db1", false);
  EXPECT_EQ(vmctl("rm db1").exit, 0);
  EXPECT_EQ(vmctl("rm web1").exit, 0);
  EXPECT_EQ(removed(), "web1\ndb1\n");
}

TEST_F(UndeleteVerb, KnowsNoneThatIsTooLongToBeKeptAndThatIsRemovedAllTheSame) {
  put("vmConfig", "web1", R"({"name":")" + std::string(statedb::longestDocument - 20, 'x') + "\"}");
  EXPECT_EQ(vmctl("rm --force web1").exit, 0);
  EXPECT_EQ(doc("vmConfig", "web1"), "none");
  EXPECT_EQ(removed(), "");
}

TEST_F(UndeleteVerb, IsNoVmToAnybodyElse) {
  vmctl("rm web1");
  EXPECT_EQ(vmctl("list -o name").out, "");
  EXPECT_THAT(vmctl("export").out, Not(HasSubstr("web1")));
  put("removed", "none of ours", R"({"vm":7})");
  EXPECT_EQ(removed(), "web1\n");
}

}  // namespace
}  // namespace ctl
