// What of the machine a guest may take, as an operator says and sees it.
#include "ctl/fakes/VmctlFixture.h"

namespace ctl {
namespace {

using fakes::Answer;
using testing::HasSubstr;
using testing::Not;

class Limits : public fakes::VmctlFixture {
 protected:
  Limits() { putVm("web1", true); }

  Answer apply(const std::string& limits) {
    files_["vms.json"] = R"({"version":1,"vms":[{"name":"web1","config":{"enabled":true,)"
                         R"("diskImage":"/images/web.iso"})" +
                         limits + "}]}";
    return vmctl("apply -f vms.json");
  }
  std::string row() { return doc("vmLimits", "web1"); }
};

TEST_F(Limits, AreSetAndInForceAtOnce) {
  putRunning("web1");
  EXPECT_EQ(vmctl("set web1 cpuWeight=50 cpuMax=1.5 memoryReserve=0.125G ioWeight=200"),
            (Answer{0, "", "web1: changed\n"}));
  EXPECT_EQ(row(),
            R"({"cpuWeight":50,"cpuMax":"1.5","memoryReserve":128,"ioWeight":200,"rateLimit":0})");
  EXPECT_THAT(vmctl("show web1").out,
              HasSubstr("\nLimits:   cpuWeight 50, cpuMax 1.5, memoryReserve 128 MiB, "
                        "ioWeight 200\n"));
}

TEST_F(Limits, ThatAreSetLeaveTheOthers) {
  vmctl("set web1 cpuWeight=50");
  vmctl("set web1 ioWeight=20");
  EXPECT_EQ(row(),
            R"({"cpuWeight":50,"cpuMax":"0","memoryReserve":0,"ioWeight":20,"rateLimit":0})");
}

TEST_F(Limits, OfNobodysInterestHaveNoRowAndAreNotShown) {
  EXPECT_EQ(row(), "none");
  EXPECT_THAT(vmctl("show web1").out, Not(HasSubstr("Limits")));
  EXPECT_THAT(vmctl("show web1 -o json").out, Not(HasSubstr("limits")));
  EXPECT_THAT(vmctl("export").out, Not(HasSubstr("limits")));
  vmctl("set web1 cpuWeight=50");
  EXPECT_EQ(vmctl("set web1 cpuWeight=100").err, "web1: changed\n");
  EXPECT_EQ(row(), "none");
  EXPECT_EQ(vmctl("set web1 cpuWeight=100").err, "web1: was so already\n");
}

TEST_F(Limits, AreRefusedWithWhatWouldBeRight) {
  EXPECT_EQ(vmctl("set web1 cpuWeight=0 cpuMax=1.234 memoryReserve=9G ioWeight=many"),
            (Answer{5, "",
                    "vmctl: web1: cpuWeight: '0' is refused: must be 1 to 10000; 100 is usual\n"
                    "vmctl: web1: cpuMax: '1.234' is refused: must be 0.05 to 1024 "
                    "(processors) with two decimals at most, such as 1.5, or 0 for as many as it "
                    "wants\n"
                    "vmctl: web1: memoryReserve: '9G' is refused: must be 0 to 8192 (mebibytes; "
                    "this machine has no more)\n"
                    "vmctl: web1: ioWeight: 'many' is refused: must be 1 to 10000; 100 is "
                    "usual\n"}));
  EXPECT_EQ(row(), "none");
}

TEST_F(Limits, AreInWhatIsExportedAndCanBeAppliedAgain) {
  vmctl("set web1 cpuMax=0.5");
  const Answer exported = vmctl("export");
  EXPECT_THAT(exported.out, HasSubstr(R"("cpuMax": "0.5")"));
  vmctl("set web1 cpuMax=0 cpuWeight=7");
  files_["vms.json"] = exported.out;
  EXPECT_EQ(vmctl("apply -f vms.json").err, "web1: changed: cpuWeight=100, cpuMax=0.5\n");
  EXPECT_EQ(row(),
            R"({"cpuWeight":100,"cpuMax":"0.5","memoryReserve":0,"ioWeight":100,"rateLimit":0})");
}

TEST_F(Limits, OfADocumentAreWhole) {
  vmctl("set web1 cpuWeight=50 ioWeight=20");
  EXPECT_EQ(apply(R"(,"limits":{"ioWeight":20})").err, "web1: changed: cpuWeight=100\n");
  EXPECT_EQ(apply("").err, "web1: changed: ioWeight=100\n");
  EXPECT_EQ(row(), "none");
}

TEST_F(Limits, OfADocumentAreRefusedWithAllThatIsWrong) {
  EXPECT_EQ(apply(R"(,"limits":{"cpuWeight":"x","ioWeight":5,"weight":1})"),
            (Answer{5, "",
                    "vmctl: web1: limits: cpuWeight: 'x' is refused: must be a whole number from "
                    "0 to 4294967295, without quotes\n"
                    "vmctl: web1: limits: weight: '1' is refused: there is no such field; did you "
                    "mean 'ioWeight'?\n"}));
  EXPECT_EQ(apply(R"(,"limits":{"cpuWeight":0})"),
            (Answer{5, "",
                    "vmctl: web1: limits: cpuWeight: '0' is refused: must be 1 to 10000; 100 is "
                    "usual\n"}));
}

TEST_F(Limits, CanBeEdited) {
  vmctl("set web1 cpuWeight=50");
  onEdit([](std::string text) { return text.replace(text.find("50"), 2, "60"); });
  EXPECT_EQ(vmctl("edit web1").err, "web1: changed: cpuWeight=60\n");
  EXPECT_THAT(row(), HasSubstr(R"("cpuWeight":60)"));
}

TEST_F(Limits, GoWithTheirVm) {
  vmctl("set web1 cpuWeight=50 enabled=false");
  vmctl("remove web1");
  EXPECT_EQ(row(), "none");
}

TEST_F(Limits, ThatTwoSetAtOnceAreBothKept) {
  beforeCommit([this] { put("vmLimits", "web1", R"({"ioWeight":20,"rateLimit":0})"); });
  EXPECT_EQ(vmctl("set web1 cpuWeight=50").exit, 0);
  EXPECT_EQ(row(),
            R"({"cpuWeight":50,"cpuMax":"0","memoryReserve":0,"ioWeight":20,"rateLimit":0})");
}

}  // namespace
}  // namespace ctl
