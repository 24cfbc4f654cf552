#include "ctl/fakes/VmctlFixture.h"

namespace ctl {
namespace {

using fakes::Answer;
using testing::HasSubstr;

constexpr const char* taken = "vmctl: web1: ";

class AddVerb : public fakes::VmctlFixture {};
class SetVerb : public fakes::VmctlFixture {
 protected:
  SetVerb() { putVm("web1", false); }
};
class NicVerb : public fakes::VmctlFixture {
 protected:
  NicVerb() { putVm("web1", false); }
};

// add

TEST_F(AddVerb, WritesAWholeDocumentWithDefaults) {
  EXPECT_EQ(vmctl("add web1 --disk /images/web.iso"), (Answer{0, "", "web1: added\n"}));
  EXPECT_EQ(doc("vmConfig", "web1"),
            R"({"enabled":false,"diskImage":"/images/web.iso","memory":256,"vncPort":0,)"
            R"("vnicConfig":{}})");
}

TEST_F(AddVerb, WritesAllThatIsGiven) {
  EXPECT_EQ(vmctl("add web1 --disk=/images/web.iso --memory 2G --vnc-port=5901 --enabled"
                  " --nic model=e1000,mac=52-54-00-12-34-56,intf=Vlan100"
                  " --nic intf=Ethernet1/1,key=nic05,mac=52:54:00:12:34:57,model=rtl8139"
                  " --nic model=e1000,mac=52:54:00:12:34:58,intf=Vlan4094"),
            (Answer{0, "", "web1: added and enabled\n"}));
  EXPECT_EQ(
      doc("vmConfig", "web1"),
      R"({"enabled":true,"diskImage":"/images/web.iso","memory":2048,"vncPort":5901,"vnicConfig":{)"
      R"("nic00":{"model":"e1000","macAddr":"52:54:00:12:34:56","intfName":"Vlan100"},)"
      R"("nic05":{"model":"rtl8139","macAddr":"52:54:00:12:34:57","intfName":"Ethernet1/1"},)"
      R"("nic06":{"model":"e1000","macAddr":"52:54:00:12:34:58","intfName":"Vlan4094"}}})");
}

TEST_F(AddVerb, TellsAllThatIsWrongAndWritesNothing) {
  EXPECT_EQ(vmctl("add -- -web").err, "vmctl: 'add' needs --disk FILE\n");
  EXPECT_EQ(
      vmctl("add we,b --disk /web,iso --memory 9000 --vnc-port 80"
            " --nic model=e100,mac=01:00:00:00:00:01,intf=Vlan0"),
      (Answer{
          5, "",
          "vmctl: we,b: name: 'we,b' is refused: must be 1 to 64 of A-Z a-z 0-9 . _ -, the first a "
          "letter or a digit\n"
          "vmctl: we,b: diskImage: '/web,iso' is refused: must be an absolute path without blanks, "
          "commas and control characters\n"
          "vmctl: we,b: memory: '9000' is refused: must be 1 to 8192 (mebibytes; this machine has "
          "no more)\n"
          "vmctl: we,b: vncPort: '80' is refused: must be 5900 to 5910, or 0 for no display\n"
          "vmctl: we,b: vnicConfig.nic00.model: 'e100' is refused: must be a network card of "
          "QEMU's; did you mean 'e1000'?\n"
          "vmctl: we,b: vnicConfig.nic00.macAddr: '01:00:00:00:00:01' is refused: must be one "
          "station's address: not all zeros, the second digit even\n"
          "vmctl: we,b: vnicConfig.nic00.intfName: 'Vlan0' is refused: must be Vlan1 to Vlan4094, "
          "without leading zeros, signs or anything behind the number\n"}));
  EXPECT_EQ(doc("vmConfig", "we,b"), "none");
}

TEST_F(AddVerb, TellsOfTextThatIsNoValueOnceAndWithWhatWouldDo) {
  EXPECT_EQ(vmctl("add web1 --disk /images/web.iso --memory lots --vnc-port -1"
                  " --nic model=e1000,mac=52:54,intf=Vlan1"),
            (Answer{5, "",
                    "vmctl: web1: memory: 'lots' is refused: must be a number of mebibytes, or one "
                    "with K, M or G behind it that makes whole mebibytes\n"
                    "vmctl: web1: vncPort: '-1' is refused: must be 5900 to 5910, or 0 for no "
                    "display\n"
                    "vmctl: web1: vnicConfig.nic00.macAddr: '52:54' is refused: must be a MAC "
                    "address, such as 52:54:00:12:34:56\n"}));
}

TEST_F(AddVerb, RefusesAnEmptyName) {
  const Answer answer = vmctl(std::vector<rt::String>{"add", "", "--disk", "/images/web.iso"});
  EXPECT_EQ(answer.exit, 5);
  EXPECT_EQ(answer.err,
            "vmctl: : name: '' is refused: must be 1 to 64 of A-Z a-z 0-9 . _ -, the first a "
            "letter or a digit\n");
}

TEST_F(AddVerb, RefusesWhatAnotherVmHas) {
  vmctl(
      "add web1 --disk /images/web.iso --vnc-port 5901 --enabled"
      " --nic model=e1000,mac=52:54:00:12:34:56,intf=Vlan1");
  EXPECT_EQ(vmctl("add web2 --disk /images/web.iso --vnc-port 5901 --enabled"
                  " --nic model=e1000,mac=52:54:00:12:34:56,intf=Vlan1"),
            (Answer{5, "",
                    "vmctl: web2: vncPort: '5901' is refused: must be another port, or 0 for none: "
                    "VM 'web1' is enabled and has it\n"
                    "vmctl: web2: vnicConfig.nic00.macAddr: '52:54:00:12:34:56' is refused: must "
                    "be another address: card 'nic00' of VM 'web1' has it\n"}));
  EXPECT_EQ(doc("vmConfig", "web2"), "none");
}

TEST_F(AddVerb, LeavesRowsThatCannotBeReadOutOfTheCheck) {
  put("vmConfig", "web1", R"({"vncPort":5901,"enabled":true,"colour":"red"})");
  EXPECT_EQ(vmctl("add web2 --disk /images/web.iso --vnc-port 5901 --enabled").exit, 0);
}

TEST_F(AddVerb, MeansARelativePathFromWhereTheOperatorIs) {
  EXPECT_EQ(vmctl("add web1 --disk images/web.iso"), (Answer{0, "", "web1: added\n"}));
  EXPECT_THAT(doc("vmConfig", "web1"), HasSubstr(R"("diskImage":"/here/images/web.iso")"));
  vmctl("set web1 diskImage=../b.iso");
  EXPECT_THAT(doc("vmConfig", "web1"), HasSubstr(R"("diskImage":"/here/../b.iso")"));
  EXPECT_EQ(vmctl("set web1 diskImage=").exit, 5);
}

TEST_F(AddVerb, WarnsOfADiskImageThatIsMissing) {
  missingImages_ = {"/images/web.iso"};
  EXPECT_EQ(vmctl("add web1 --disk /images/web.iso"),
            (Answer{0, "",
                    "vmctl: web1: warning: the disk image '/images/web.iso' cannot be used now: it "
                    "must be a file that can be read: No such file or directory\n"
                    "web1: added\n"}));
}

TEST_F(AddVerb, RefusesANameThatIsTaken) {
  putVm("web1", true);
  const std::string before = doc("vmConfig", "web1");
  EXPECT_EQ(vmctl("add web1 --disk /other.iso"),
            (Answer{4, "",
                    std::string(taken) + "there is a VM of that name already: change it with "
                                         "'vmctl set', or take another name\n"}));
  EXPECT_EQ(doc("vmConfig", "web1"), before);
}

TEST_F(AddVerb, RefusesANameThatWasTakenAtTheLastMoment) {
  beforeCommit([&] { putVm("web1", true); });
  EXPECT_EQ(vmctl("add web1 --disk /other.iso").exit, 4);
  EXPECT_THAT(doc("vmConfig", "web1"), testing::HasSubstr("/images/web.iso"));
}

TEST_F(AddVerb, SaysThatNothingHappensWithoutADaemon) {
  daemonRuns_ = false;
  hasStatus_ = false;
  EXPECT_EQ(vmctl("add web1 --disk /images/web.iso"),
            (Answer{0, "",
                    "web1: added\n"
                    "vmctl: vmagentd is not running: nothing happens until it does\n"}));
}

TEST_F(AddVerb, WarnsOfACardWhoseInterfaceIsNotThere) {
  put("interfaceStatus", "Ethernet1", R"({"deviceName":"Ethernet1","present":true})");
  put("interfaceStatus", "Ethernet2", R"({"deviceName":"eth2","present":false})");
  const std::string add =
      "add web1 --disk /images/web.iso --nic model=e1000,mac=52:54:00:00:00:01,";
  EXPECT_EQ(vmctl(add + "intf=Ethernt1"),
            (Answer{0, "",
                    "vmctl: web1: warning: card 'nic00' has no carrier now: there is no interface "
                    "'Ethernt1'; did you mean 'Ethernet1'?\n"
                    "web1: added\n"}));
  EXPECT_THAT(vmctl("set web1 vnicConfig.nic00.intfName=Vlan7").err,
              HasSubstr("no interface 'Vlan7'; 'vmctl interface list' shows those there are"));
  EXPECT_THAT(vmctl("set web1 vnicConfig.nic00.intfName=Ethernet2").err,
              HasSubstr("there is no interface 'Ethernet2'"));
  EXPECT_EQ(vmctl("set web1 vnicConfig.nic00.intfName=Ethernet1").err, "web1: changed\n");
  EXPECT_THAT(vmctl("nic add web1 model=e1000,mac=52:54:00:00:00:02,intf=Vlan8").err,
              HasSubstr("card 'nic01' has no carrier now"));
}

TEST_F(AddVerb, KnowsNothingOfInterfacesWithoutADaemon) {
  put("interfaceStatus", "Ethernet1", R"({"deviceName":"Ethernet1","present":true})");
  daemonRuns_ = false;
  EXPECT_THAT(
      vmctl("add web1 --disk /images/web.iso --nic model=e1000,mac=52:54:00:00:00:01,intf=x").err,
      testing::Not(HasSubstr("carrier")));
}

TEST_F(AddVerb, MakesCardsOfTheUsualModelWithAddressesThatNobodyHas) {
  vmctl("add web1 --disk /images/web.iso --nic intf=Vlan1,mac=52:54:00:12:34:57");
  EXPECT_EQ(vmctl("add web2 --disk /images/web.iso --nic intf=Vlan1 --nic intf=Vlan2").exit, 0);
  EXPECT_THAT(
      doc("vmConfig", "web2"),
      HasSubstr(
          R"("nic00":{"model":"virtio-net-pci","macAddr":"52:54:00:12:34:56","intfName":"Vlan1"},)"
          R"("nic01":{"model":"virtio-net-pci","macAddr":"52:54:00:12:34:58","intfName":"Vlan2"})"));
  EXPECT_EQ(vmctl("nic add web1 intf=Vlan2").exit, 0);
  EXPECT_THAT(doc("vmConfig", "web1"), HasSubstr("52:54:00:12:34:59"));
}

TEST_F(AddVerb, RefusesWhatIsNoDiskWhateverBecomesOfItsRights) {
  images_["/images"] = {};  // a folder
  model::ImageFacts& small = images_["/etc/passwd"] = {};
  small.kind = model::ImageFacts::Kind::regular;
  small.size = 1415;
  model::ImageFacts& foreign = images_["/a.vmdk"] = {};
  foreign.kind = model::ImageFacts::Kind::regular;
  foreign.size = model::smallestImage;
  std::copy_n("KDMV", 4, foreign.head.begin());
  EXPECT_EQ(vmctl("add web1 --disk /images"),
            (Answer{5, "",
                    "vmctl: web1: diskImage: '/images' is refused: must be a regular file or a "
                    "block device\n"}));
  for (const char* path : {"/etc/passwd", "/a.vmdk"})
    EXPECT_EQ(vmctl(std::string("add web1 --disk ") + path).exit, 5) << path;
  vmctl("add web1 --disk /b.img");
  EXPECT_EQ(vmctl("set web1 diskImage=/images").exit, 5);
  EXPECT_EQ(vmctl("clone web1 web2 --disk /images").exit, 5);
  EXPECT_EQ(vmctl("set web1 diskImage=/a.vmdk format=raw").exit, 0) << "who says so means it";
}

TEST_F(AddVerb, RefusesACardThatIsNotDescribed) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"model=e1000",
       "card 'model=e1000' is refused: must have intf=..., the interface of the switch it is "
       "bridged to"},
      {"e1000",
       "card 'e1000' is refused: must be intf=I[,model=M][,mac=A][,key=K], such as intf=Vlan100 or "
       "intf=Vlan100,model=e1000,mac=52:54:00:12:34:56"},
      {"modle=e1000", "there is no part of a card 'modle'; did you mean 'model'?"},
      {"colour=red", "there is no part of a card 'colour'; there are key, model, mac, intf"},
      {"model=a,model=b", "card 'model=a,model=b' is refused: 'model' must be there once"},
      {"key=,model=a,mac=b,intf=c",
       "card 'key=,model=a,mac=b,intf=c' is refused: its key must not be empty"}};
  for (const auto& [card, sentence] : cases)
    EXPECT_EQ(vmctl("add web1 --disk /images/web.iso --nic " + card),
              (Answer{2, "", "vmctl: " + sentence + "\n"}));
}

// set

TEST_F(SetVerb, ChangesAllFieldsInOneTransaction) {
  int commits = 0;
  beforeCommit([&] { ++commits; });
  beforeCommit([&] { ++commits; });
  EXPECT_EQ(vmctl("set web1 enabled=true diskImage=/b.iso memory=1048576K vncPort=5910"
                  " vnicConfig.wan.model=e1000 vnicConfig.wan.macAddr=52:54:00:00:00:01"
                  " vnicConfig.wan.intfName=Vlan7"),
            (Answer{0, "", "web1: changed\n"}));
  EXPECT_EQ(doc("vmConfig", "web1"),
            R"({"enabled":true,"diskImage":"/b.iso","memory":1024,"vncPort":5910,"vnicConfig":{)"
            R"("wan":{"model":"e1000","macAddr":"52:54:00:00:00:01","intfName":"Vlan7"}}})");
  EXPECT_EQ(commits, 1);
}

TEST_F(SetVerb, ChangesNothingWhenOneValueIsRefused) {
  const std::string before = doc("vmConfig", "web1");
  EXPECT_EQ(vmctl("set web1 enabled=yes memory=0 diskImage=/b.iso"),
            (Answer{5, "",
                    "vmctl: web1: enabled: 'yes' is refused: must be true or false\n"
                    "vmctl: web1: memory: '0' is refused: must be 1 to 8192 (mebibytes; this "
                    "machine has no more)\n"}));
  EXPECT_EQ(doc("vmConfig", "web1"), before);
}

TEST_F(SetVerb, RefusesTwoValuesForOneField) {
  EXPECT_EQ(vmctl("set web1 memory=1 memory=2"),
            (Answer{2, "", "vmctl: 'memory' must be there once\n"}));
}

TEST_F(SetVerb, KnowsACardsFieldByItsPartOfTheOption) {
  EXPECT_THAT(vmctl("set web1 nic00.intf=x").err,
              HasSubstr("did you mean 'vnicConfig.nic00.intfName'?"));
  EXPECT_THAT(vmctl("set web1 intfName=x").err,
              HasSubstr("did you mean 'vnicConfig.KEY.intfName'?"));
}

TEST_F(SetVerb, SaysThatWhatARunningGuestHasChangesAtItsNextStart) {
  putVm("web1", true);
  EXPECT_EQ(vmctl("set web1 memory=128").err, "web1: changed\n") << "nothing runs";
  putRunning("web1");
  for (const char* change : {"memory=512", "diskImage=/b.iso", "vncPort=5905"})
    EXPECT_EQ(vmctl(std::string("set web1 ") + change).err,
              "web1: changed; takes effect at the next start ('vmctl restart web1')\n");
  EXPECT_EQ(vmctl("set web1 enabled=false memory=256").err, "web1: changed\n");
}

TEST_F(SetVerb, SaysThatNothingIsNew) {
  EXPECT_EQ(vmctl("set web1 memory=256M"), (Answer{0, "", "web1: was so already\n"}));
}

TEST_F(SetVerb, SuggestsTheFieldsThereAre) {
  EXPECT_EQ(vmctl("set web1 memroy=1"),
            (Answer{2, "", "vmctl: there is no field 'memroy'; did you mean 'memory'?\n"}));
  EXPECT_EQ(vmctl("set web1 mem=1").err,
            "vmctl: there is no field 'mem'; did you mean 'memory'?\n");
  EXPECT_EQ(vmctl("set web1 nic00.intfName=Vlan1").err,
            "vmctl: there is no field 'nic00.intfName'; did you mean "
            "'vnicConfig.nic00.intfName'?\n");
  EXPECT_EQ(vmctl("set web1 colour=1"),
            (Answer{2, "",
                    "vmctl: there is no field 'colour'; there are enabled, diskImage, format, "
                    "memory, vncPort, cpuWeight, cpuMax, memoryReserve, ioWeight, rateLimit, "
                    "restart, startOrder, startDelay, link, "
                    "vnicConfig.KEY.FIELD\n"}));
  EXPECT_EQ(vmctl("set web1 vnicConfig.nic00.mac=1"),
            (Answer{2, "", "vmctl: there is no field of a card 'mac'; did you mean 'macAddr'?\n"}));
  EXPECT_EQ(vmctl("set web1 vnicConfig.nic00.vlan=1").err,
            "vmctl: there is no field of a card 'vlan'; there are model, macAddr, intfName\n");
  EXPECT_EQ(vmctl("set web1 vnicConfig.model=e1000"),
            (Answer{2, "",
                    "vmctl: 'vnicConfig.model' names no card's field: write "
                    "vnicConfig.KEY.FIELD\n"}));
  EXPECT_EQ(
      vmctl("set web1 memory"),
      (Answer{2, "", "vmctl: 'memory' is refused: must be FIELD=VALUE, such as memory=512\n"}));
}

TEST_F(SetVerb, RefusesACardThatIsNotThereUnlessAllOfItIsGiven) {
  vmctl("nic add web1 model=e1000,mac=52:54:00:00:00:01,intf=Vlan1");
  EXPECT_EQ(vmctl("set web1 vnicConfig.nic0.model=rtl8139"),
            (Answer{3, "",
                    "vmctl: web1: there is no card 'nic0'; did you mean 'nic00'?; a new one needs "
                    "model, macAddr and intfName\n"}));
  EXPECT_THAT(doc("vmConfig", "web1"), testing::Not(HasSubstr("nic0\"")));
}

TEST_F(SetVerb, SuggestsTheVmThatWasMeant) {
  EXPECT_EQ(vmctl("set wbe1 memory=1"),
            (Answer{3, "", "vmctl: wbe1: there is no such VM; did you mean 'web1'?\n"}));
}

TEST_F(SetVerb, RefusesARowThatCannotBeRead) {
  put("vmConfig", "web1", R"({"memory":"256","colour":"red"})");
  EXPECT_EQ(vmctl("set web1 memory=256"),
            (Answer{5, "",
                    "vmctl: web1: memory: '256' is refused: must be a whole number from 0 to "
                    "4294967295, without quotes\n"
                    "vmctl: web1: colour: 'red' is refused: there is no such field; there are "
                    "enabled, diskImage, memory, vncPort, vnicConfig\n"
                    "vmctl: web1: so its row cannot be changed: replace it with 'vmctl apply', or "
                    "'vmctl remove --force' it and add it anew\n"}));
}

TEST_F(SetVerb, KeepsWhatAnotherWroteAtTheSameMoment) {
  beforeCommit([&] { vmctl("set web1 memory=512"); });
  EXPECT_EQ(vmctl("set web1 vncPort=5903").exit, 0);
  EXPECT_EQ(doc("vmConfig", "web1"),
            R"({"enabled":false,"diskImage":"/images/web.iso","memory":512,"vncPort":5903,)"
            R"("vnicConfig":{}})");
}

TEST_F(SetVerb, GivesUpWhenOthersNeverStopWriting) {
  for (int i = 0; i < 10; ++i)
    beforeCommit([this, i] {
      put("vmConfig", "web1",
          "{\"diskImage\":\"/a\",\"memory\":" + rt::String(i % 2 ? "1" : "2") + "}");
    });
  EXPECT_EQ(vmctl("set web1 vncPort=5903"),
            (Answer{4, "",
                    "vmctl: record 'web1' of table 'vmConfig' was changed meanwhile: nothing was "
                    "written; look at it and try again\n"}));
  EXPECT_THAT(doc("vmConfig", "web1"), testing::Not(testing::HasSubstr("5903")));
}

TEST_F(SetVerb, WarnsOfAnImageOnlyWhenItMatters) {
  missingImages_ = {"/images/web.iso"};
  EXPECT_EQ(vmctl("set web1 memory=512").err, "web1: changed\n");
  EXPECT_THAT(vmctl("set web1 enabled=true").err, testing::HasSubstr("warning"));
}

// nic

TEST_F(NicVerb, AddsCardsUnderKeysThatFollowEachOther) {
  vmctl("nic add web1 model=e1000,mac=52:54:00:00:00:01,intf=Vlan1");
  vmctl("nic add web1 model=e1000,mac=52:54:00:00:00:02,intf=Vlan1 --key nic08");
  EXPECT_EQ(vmctl("nic add web1 model=e1000,mac=52:54:00:00:00:03,intf=Vlan1"),
            (Answer{0, "", "web1: changed\n"}));
  vmctl("nic remove web1 nic00");
  EXPECT_EQ(doc("vmConfig", "web1"),
            R"({"enabled":false,"diskImage":"/images/web.iso","memory":256,"vncPort":0,)"
            R"("vnicConfig":{)"
            R"("nic08":{"model":"e1000","macAddr":"52:54:00:00:00:02","intfName":"Vlan1"},)"
            R"("nic09":{"model":"e1000","macAddr":"52:54:00:00:00:03","intfName":"Vlan1"}}})");
}

TEST_F(NicVerb, RefusesAKeyThatWouldNotComeLast) {
  vmctl("nic add web1 key=nic99,model=e1000,mac=52:54:00:00:00:01,intf=Vlan1");
  EXPECT_EQ(vmctl("nic add web1 model=e1000,mac=52:54:00:00:00:02,intf=Vlan1"),
            (Answer{2, "",
                    "vmctl: web1: no key nicNN comes behind that of card 'nic99', and cards are "
                    "numbered in key order: name a key\n"}));
}

TEST_F(NicVerb, RefusesAKeyThatIsTakenAndAnEmptyOne) {
  vmctl("nic add web1 model=e1000,mac=52:54:00:00:00:01,intf=Vlan1");
  EXPECT_EQ(vmctl("nic add web1 key=nic00,model=e1000,mac=52:54:00:00:00:02,intf=Vlan1"),
            (Answer{4, "",
                    "vmctl: web1: there is a card 'nic00' already: change it with 'vmctl set', or "
                    "name another key\n"}));
  EXPECT_EQ(vmctl("nic add web1 model=e1000,mac=52:54:00:00:00:02,intf=Vlan1 --key="),
            (Answer{2, "", "vmctl: --key: must not be empty\n"}));
}

TEST_F(NicVerb, RefusesToRemoveACardThatIsNotThere) {
  vmctl("nic add web1 model=e1000,mac=52:54:00:00:00:01,intf=Vlan1");
  EXPECT_EQ(vmctl("nic rm web1 nic01"),
            (Answer{3, "", "vmctl: web1: there is no card 'nic01'; did you mean 'nic00'?\n"}));
}

TEST_F(NicVerb, MovesACardOfAGuestThatRunsAtOnce) {
  putVm("web1", true);
  vmctl("nic add web1 model=e1000,mac=52:54:00:00:00:01,intf=Vlan1");
  EXPECT_EQ(vmctl("nic set web1 nic00 intf=Vlan2"),
            (Answer{0, "", "web1: changed\nweb1: nic00 goes from Vlan1 to Vlan2\n"}));
  EXPECT_THAT(doc("vmConfig", "web1"), testing::HasSubstr(R"("intfName":"Vlan2")"));
  EXPECT_EQ(vmctl("nic set web1 nic00 intf=Vlan2"), (Answer{0, "", "web1: was so already\n"}));
  EXPECT_EQ(vmctl("nic set web1 nic00 intf=Vlan3 --dry-run"),
            (Answer{0, "", "web1: would be changed\n"}));
}

TEST_F(NicVerb, HasAGuestGetAnotherModelAtItsNextStart) {
  putRunning("web1");
  putVm("web1", true);
  vmctl("nic add web1 model=e1000,mac=52:54:00:00:00:01,intf=Vlan1");
  EXPECT_EQ(vmctl("nic set web1 nic00 model=rtl8139,mac=52:54:00:00:00:02").err,
            "web1: changed; takes effect at the next start ('vmctl restart web1')\n");
  EXPECT_THAT(doc("vmConfig", "web1"),
              testing::HasSubstr(R"("model":"rtl8139","macAddr":"52:54:00:00:00:02")"));
}

TEST_F(NicVerb, RefusesToSetWhatIsNotThereOrNoValue) {
  vmctl("nic add web1 model=e1000,mac=52:54:00:00:00:01,intf=Vlan1");
  EXPECT_EQ(vmctl("nic set web1 nic01 intf=Vlan2"),
            (Answer{3, "", "vmctl: web1: there is no card 'nic01'; did you mean 'nic00'?\n"}));
  EXPECT_EQ(vmctl("nic set web1 nic00 intf").exit, 2);
  EXPECT_EQ(vmctl("nic set web1 nic00 speed=10").exit, 2);
  EXPECT_EQ(vmctl("nic set web1 nic00 intf=Vlan0").exit, 5);
}

TEST_F(SetVerb, SaysThatTheConfigurationWouldBeTooLong) {
  const std::string path = "/" + std::string(1024 * 1024, 'x');
  const Answer answer =
      vmctl(std::vector<rt::String>{"set", "web1", rt::String("diskImage=" + path)});
  EXPECT_EQ(answer.exit, 5);
  EXPECT_THAT(answer.err, testing::StartsWith("vmctl: "));
  EXPECT_THAT(answer.err, testing::EndsWith(" bytes: it must have at most 1048576\n"));
}

}  // namespace
}  // namespace ctl
