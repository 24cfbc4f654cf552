#include "ctl/fakes/VmctlFixture.h"

namespace ctl {
namespace {

using fakes::Answer;
using testing::HasSubstr;
using testing::Not;

constexpr const char* disk = "/images/web.qcow2";

std::string configOf(bool isEnabled, const std::string& image, const std::string& mac) {
  return std::string(R"({"enabled":)") + (isEnabled ? "true" : "false") + R"(,"diskImage":")" +
         image + R"(","memory":512,"vncPort":0,"vnicConfig":{"nic00":{"model":"e1000",)" +
         R"("macAddr":")" + mac + R"(","intfName":"Vlan1"}}})";
}

class CloneVerb : public fakes::VmctlFixture {
 protected:
  CloneVerb() {
    put("interfaceStatus", "Vlan1", R"({"deviceName":"Vlan1","present":true})");
    put("vmConfig", "web1", configOf(true, disk, "52:54:00:00:00:01"));
    put("vmImage", "web1", R"({"diskImage":"/images/web.qcow2","format":"qcow2"})");
    put("vmLimits", "web1", R"({"cpuMax":"0.5"})");
    put("vmPolicy", "web1", R"({"restart":"always"})");
  }
};

class RenameVerb : public CloneVerb {
 protected:
  RenameVerb() { put("vmConfig", "web1", configOf(false, disk, "52:54:00:00:00:01")); }
};

TEST_F(CloneVerb, HasAllThatWasSaidOfTheOtherIsOffAndHasAddressesOfItsOwn) {
  EXPECT_EQ(vmctl("clone web1 web2 --disk /images/web2.img"),
            (Answer{0, "", "web2: added as a clone of web1, disabled\n"}));
  EXPECT_EQ(doc("vmConfig", "web2"), configOf(false, "/images/web2.img", "52:54:00:12:34:56"));
  EXPECT_EQ(doc("vmImage", "web2"), R"({"diskImage":"/images/web2.img","format":"raw"})");
  EXPECT_THAT(doc("vmLimits", "web2"), HasSubstr(R"("cpuMax":"0.5")"));
  EXPECT_THAT(doc("vmPolicy", "web2"), HasSubstr(R"("restart":"always")"));
  EXPECT_EQ(doc("vmConfig", "web1"), configOf(true, disk, "52:54:00:00:00:01"));
}

TEST_F(CloneVerb, HasTheFieldsThatAreSaid) {
  EXPECT_EQ(vmctl("clone web1 web2 memory=1G diskImage=web2.img cpuMax=0 --restart no").exit, 0);
  EXPECT_THAT(doc("vmConfig", "web2"), HasSubstr(R"("diskImage":"/here/web2.img","memory":1024)"));
  EXPECT_EQ(doc("vmLimits", "web2"), "none");
  EXPECT_EQ(doc("vmPolicy", "web2"), "none");
}

TEST_F(CloneVerb, SaysAllThatTwoCannotShare) {
  vmctl("set web1 vncPort=5900");
  EXPECT_EQ(
      vmctl("clone web1 web2"),
      (Answer{4, "",
              "vmctl: web1: its disk image '/images/web.qcow2' is for one VM alone: copy it while "
              "the guest is off, and name the copy with --disk FILE\n"
              "vmctl: web1: its VNC port 5900 is for one VM alone: say --vnc-port 0 for no "
              "display, or another port, such as --vnc-port 5901\n"}));
  EXPECT_EQ(doc("vmConfig", "web2"), "none");
  EXPECT_EQ(vmctl("clone web1 web2 --vnc-port 5901 --disk /images/web2.img").exit, 0);
}

TEST_F(CloneVerb, SharesACd) {
  putVm("live", false);
  EXPECT_EQ(vmctl("clone live live2"),
            (Answer{0, "", "live2: added as a clone of live, disabled\n"}));
}

TEST_F(CloneVerb, OpensACdAsTheOtherDoes) {
  putVm("live", false);
  put("vmImage", "live", R"({"diskImage":"/images/web.iso","format":"qcow2"})");
  vmctl("clone live live2");
  EXPECT_EQ(doc("vmImage", "live2"), R"({"diskImage":"/images/web.iso","format":"qcow2"})");
}

TEST_F(CloneVerb, WritesNothingWhenItOnlyTells) {
  EXPECT_EQ(vmctl("clone web1 web2 --disk /x.img --dry-run"),
            (Answer{0, "", "web2: would be added as a clone of web1, disabled\n"}));
  EXPECT_EQ(doc("vmConfig", "web2"), "none");
}

TEST_F(CloneVerb, TakesNoNameThatIsTaken) {
  EXPECT_EQ(vmctl("clone web1 web1 --disk /x.img").exit, 4);
  EXPECT_EQ(vmctl("clone web9 web2").exit, 3);
  EXPECT_THAT(vmctl("clone web1 w,b --disk /x.img"),
              testing::Field(&Answer::err, HasSubstr("name: 'w,b' is refused")));
  put("vmProcess", "lost", R"({"process":"running","pid":7,"unknown":"7.8"})");
  EXPECT_THAT(vmctl("clone web1 lost --disk /x.img").err, HasSubstr("its guest runs"));
  EXPECT_EQ(doc("vmConfig", "lost"), "none");
}

TEST_F(RenameVerb, TakesAllThatWasSaidOfItAlong) {
  EXPECT_EQ(vmctl("rename web1 shop"), (Answer{0, "", "web1: is named shop now\n"}));
  EXPECT_EQ(doc("vmConfig", "shop"), configOf(false, disk, "52:54:00:00:00:01"));
  EXPECT_EQ(doc("vmImage", "shop"), R"({"diskImage":"/images/web.qcow2","format":"qcow2"})");
  EXPECT_THAT(doc("vmLimits", "shop"), HasSubstr(R"("cpuMax":"0.5")"));
  EXPECT_THAT(doc("vmPolicy", "shop"), HasSubstr(R"("restart":"always")"));
  for (const char* table : {"vmConfig", "vmImage", "vmLimits", "vmPolicy"})
    EXPECT_EQ(doc(table, "web1"), "none") << table;
}

TEST_F(RenameVerb, RemovesNothingThatCouldBeBroughtBack) {
  vmctl("rename web1 shop");
  EXPECT_EQ(vmctl("undelete"), (Answer{0, "", "no VM was removed\n"}));
}

TEST_F(RenameVerb, OfOneThatIsNotOffIsRefused) {
  const Answer refused{
      4, "",
      "vmctl: web1: is not off: 'vmctl stop web1 --wait' first, then rename it and "
      "start it again\n"};
  putRunning("web1");
  EXPECT_EQ(vmctl("rename web1 shop"), refused) << "its guest ends, and has not ended";
  putOff("web1");
  put("vmConfig", "web1", configOf(true, disk, "52:54:00:00:00:01"));
  EXPECT_EQ(vmctl("rename web1 shop"), refused) << "its guest is about to be started";
  EXPECT_EQ(doc("vmConfig", "shop"), "none");
}

TEST_F(RenameVerb, OfOneThatIsStartedAtTheLastMomentIsRefused) {
  beforeCommit([&] { put("vmConfig", "web1", configOf(true, disk, "52:54:00:00:00:01")); });
  EXPECT_EQ(vmctl("rename web1 shop").exit, 4);
  EXPECT_EQ(doc("vmConfig", "shop"), "none");
}

TEST_F(RenameVerb, ToANameThatIsTakenAtTheLastMomentIsRefused) {
  beforeCommit([&] { putVm("shop", false); });
  EXPECT_EQ(vmctl("rename web1 shop").exit, 4);
  EXPECT_THAT(doc("vmConfig", "web1"), Not("none"));
  EXPECT_THAT(doc("vmConfig", "shop"), HasSubstr("/images/web.iso"));
}

TEST_F(RenameVerb, TakesNoNameThatIsTaken) {
  putVm("web2", false);
  EXPECT_EQ(vmctl("rename web1 web2"),
            (Answer{4, "",
                    "vmctl: web2: there is a VM of that name already: take another name, or 'vmctl "
                    "remove web2' first\n"}));
  EXPECT_EQ(vmctl("rename web1 w,b").exit, 5);
  EXPECT_EQ(vmctl("rename web1 web1").exit, 4);
  EXPECT_EQ(vmctl("rename web9 shop").exit, 3);
  put("vmProcess", "lost", R"({"process":"running","pid":7,"unknown":"7.8"})");
  EXPECT_THAT(vmctl("rename web1 lost").err, HasSubstr("its guest runs"));
  EXPECT_EQ(doc("vmConfig", "lost"), "none");
  EXPECT_THAT(doc("vmConfig", "web1"), Not("none"));
}

TEST_F(RenameVerb, OfARowThatCannotBeReadIsRefused) {
  put("vmConfig", "web1", R"({"memory":"much"})");
  EXPECT_EQ(vmctl("rename web1 shop").exit, 5);
  EXPECT_EQ(vmctl("clone web1 web2").exit, 5);
}

}  // namespace
}  // namespace ctl
