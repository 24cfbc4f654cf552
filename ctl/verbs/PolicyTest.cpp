// What is done for a VM without being asked, as an operator says and sees it.
#include "ctl/fakes/VmctlFixture.h"

namespace ctl {
namespace {

using fakes::Answer;
using testing::HasSubstr;
using testing::Not;

class Policy : public fakes::VmctlFixture {
 protected:
  Policy() { putVm("web1", true); }

  Answer apply(const std::string& policy) {
    files_["vms.json"] = R"({"version":1,"vms":[{"name":"web1","config":{"enabled":true,)"
                         R"("diskImage":"/images/web.iso"})" +
                         policy + "}]}";
    return vmctl("apply -f vms.json");
  }
  std::string row() { return doc("vmPolicy", "web1"); }
};

TEST_F(Policy, IsSetAndInForceAtOnce) {
  putRunning("web1");
  EXPECT_EQ(vmctl("set web1 restart=on-failure"), (Answer{0, "", "web1: changed\n"}));
  EXPECT_EQ(row(), R"({"restart":"on-failure","startOrder":0,"startDelay":0,"link":"follow"})");
  EXPECT_THAT(vmctl("show web1").out, HasSubstr("\nPolicy:   restart on-failure\n"));
  EXPECT_THAT(vmctl("export").out, HasSubstr("\"policy\": {\n        \"restart\": \"on-failure\""));
}

TEST_F(Policy, IsGivenToAVmThatIsAdded) {
  EXPECT_EQ(vmctl("add db --disk /images/db.img --restart always").exit, 0);
  EXPECT_EQ(doc("vmPolicy", "db"),
            R"({"restart":"always","startOrder":0,"startDelay":0,"link":"follow"})");
}

TEST_F(Policy, OfNobodysInterestHasNoRow) {
  EXPECT_EQ(row(), "none");
  EXPECT_THAT(vmctl("show web1 -o json").out, Not(HasSubstr("policy")));
  vmctl("set web1 restart=always");
  vmctl("set web1 restart=no");
  EXPECT_EQ(row(), "none");
}

TEST_F(Policy, HasAPlaceInTheOrderOfStarts) {
  EXPECT_EQ(vmctl("set web1 startOrder=2 startDelay=20").exit, 0);
  EXPECT_THAT(vmctl("show web1").out, HasSubstr("\nPolicy:   startOrder 2, startDelay 20\n"));
  EXPECT_EQ(vmctl("set web1 startOrder=10000 startDelay=3601").err,
            "vmctl: web1: startOrder: '10000' is refused: must be 1 to 9999, or 0 for after all "
            "others\nvmctl: web1: startDelay: '3601' is refused: must be 0 to 3600 (seconds)\n");
}

TEST_F(Policy, SaysWhatItsGuestSeesOfItsLines) {
  EXPECT_EQ(vmctl("set web1 link=up").exit, 0);
  EXPECT_THAT(vmctl("show web1").out, HasSubstr("\nPolicy:   link up\n"));
  EXPECT_EQ(vmctl("set web1 link=down").err,
            "vmctl: web1: link: 'down' is refused: must be follow or up\n");
}

TEST_F(Policy, LeavesLimitsAlone) {
  vmctl("set web1 cpuWeight=50");
  vmctl("set web1 restart=always");
  EXPECT_NE(doc("vmLimits", "web1"), "none");
}

TEST_F(Policy, IsRefusedWithWhatWouldBeRight) {
  EXPECT_EQ(
      vmctl("set web1 restart=often"),
      (Answer{5, "",
              "vmctl: web1: restart: 'often' is refused: must be no, on-failure or always\n"}));
  const Answer answer = apply(R"(,"policy":{"restart":"often","startOrder":10000})");
  EXPECT_EQ(answer.exit, 5);
  EXPECT_THAT(answer.err, HasSubstr("web1: policy: "));
  EXPECT_EQ(row(), "none");
}

TEST_F(Policy, IsAsUsualWhereADocumentSaysNone) {
  vmctl("set web1 restart=always");
  EXPECT_EQ(apply("").exit, 0);
  EXPECT_EQ(row(), "none");
}

TEST_F(Policy, GoesWithItsVm) {
  vmctl("set web1 restart=always");
  EXPECT_EQ(vmctl("remove web1 --force").exit, 0);
  EXPECT_EQ(row(), "none");
}

}  // namespace
}  // namespace ctl
