#include "ctl/fakes/VmctlFixture.h"

namespace ctl {
namespace {

using fakes::Answer;

constexpr const char* staleLine = "vmctl: vmagentd is not running: the status is as it was left\n";

class InterfaceVerb : public fakes::VmctlFixture {
 protected:
  void putTwo() {
    put("interface", "Vlan100", R"({"deviceName":"br0.100"})");
    put("interfaceStatus", "Vlan100",
        R"({"deviceName":"br0.100","present":true,"carrier":true,"since":1700000988})");
    put("interfaceStatus", "eth0", R"({"deviceName":"eth0","present":true})");
    put("interface", "Vlan200", R"({"deviceName":"br0/200"})");
    put("interfaceStatus", "Vlan200",
        R"({"deviceName":"br0/200","present":false,"problem":"no device can be called so"})");
  }
};
class FdbVerb : public fakes::VmctlFixture {};

TEST_F(InterfaceVerb, ListShowsWhichDeviceEachIs) {
  putTwo();
  EXPECT_EQ(vmctl("interface list"),
            (Answer{0,
                    "INTERFACE  DEVICE   PRESENT  CARRIER  SINCE  PROBLEM\n"
                    "Vlan100    br0.100  yes      yes      12s    -\n"
                    "Vlan200    br0/200  no       no       -      no device can be called so\n"
                    "eth0       eth0     yes      no       -      -\n",
                    ""}));
  EXPECT_EQ(vmctl("interface ls -o name").out, "Vlan100\nVlan200\neth0\n");
}

TEST_F(InterfaceVerb, ListGivesJson) {
  putTwo();
  EXPECT_EQ(vmctl("interface list -o json"), (Answer{0, R"({
  "version": 1,
  "interfaces": [
    {
      "intfId": "Vlan100",
      "deviceName": "br0.100",
      "present": true,
      "carrier": true,
      "since": 1700000988
    },
    {
      "intfId": "Vlan200",
      "deviceName": "br0/200",
      "present": false,
      "carrier": false,
      "since": null,
      "problem": "no device can be called so"
    },
    {
      "intfId": "eth0",
      "deviceName": "eth0",
      "present": true,
      "carrier": false,
      "since": null
    }
  ]
}
)",
                                                     ""}));
}

TEST_F(InterfaceVerb, ListShowsTheConfigurationWithoutADaemon) {
  put("interface", "Vlan100", R"({"deviceName":"br0.100"})");
  daemonRuns_ = false;
  hasStatus_ = false;
  EXPECT_EQ(vmctl("interface list"),
            (Answer{0,
                    "INTERFACE  DEVICE   PRESENT  CARRIER  SINCE  PROBLEM\n"
                    "Vlan100    br0.100  no       no       -      -\n",
                    staleLine}));
}

TEST_F(InterfaceVerb, ListOfNothing) {
  EXPECT_EQ(vmctl("interface list"), (Answer{0, "", "there are no interfaces\n"}));
  EXPECT_EQ(vmctl("interface list -o json").out, "{\n  \"version\": 1,\n  \"interfaces\": []\n}\n");
}

TEST_F(InterfaceVerb, SetNamesTheDevice) {
  EXPECT_EQ(vmctl("interface set Vlan100 --device br0.100"),
            (Answer{0, "", "Vlan100: is device 'br0.100' now\n"}));
  EXPECT_EQ(doc("interface", "Vlan100"), R"({"deviceName":"br0.100"})");
}

TEST_F(InterfaceVerb, SetRefusesNamesThatCannotBe) {
  EXPECT_EQ(vmctl("interface set Vlan0100 --device br0/100"),
            (Answer{5, "",
                    "vmctl: Vlan0100: name: 'Vlan0100' is refused: must be Vlan1 to Vlan4094, "
                    "without leading zeros, signs or anything behind the number\n"
                    "vmctl: Vlan0100: deviceName: 'br0/100' is refused: must be 1 to 15 characters "
                    "without blanks, slashes and colons\n"}));
  for (const char* device : {"", ".", "..", "a b", "a:b", "sixteen-letters-"})
    EXPECT_EQ(vmctl(std::vector<rt::String>{"interface", "set", "Vlan1", "--device", device}).exit,
              5)
        << device;
  EXPECT_EQ(doc("interface", "Vlan1"), "none");
  EXPECT_EQ(vmctl("interface set Vlan1"),
            (Answer{2, "", "vmctl: 'interface set' needs --device DEV\n"}));
}

TEST_F(InterfaceVerb, UnsetForgetsTheDevice) {
  putTwo();
  EXPECT_EQ(vmctl("interface unset Vlan100"),
            (Answer{0, "", "Vlan100: is the device of its own name now\n"}));
  EXPECT_EQ(doc("interface", "Vlan100"), "none");
  EXPECT_EQ(vmctl("interface unset Vlan201"),
            (Answer{3, "",
                    "vmctl: Vlan201: no device is set for that interface; did you mean "
                    "'Vlan200'?\n"}));
}

TEST_F(InterfaceVerb, SetSaysThatNothingHappensWithoutADaemon) {
  daemonRuns_ = false;
  EXPECT_EQ(vmctl("interface set Vlan100 --device br0.100").err,
            "Vlan100: is device 'br0.100' now\n"
            "vmctl: vmagentd is not running: nothing happens until it does\n");
}

// fdb

TEST_F(FdbVerb, ListIsInOrderOfVlans) {
  put("fdb", "100/52:54:00:12:34:56", R"({"intf":"Cpu","entryType":4})");
  put("fdb", "20/52:54:00:12:34:57", R"({"intf":"Cpu","entryType":4})");
  EXPECT_EQ(vmctl("fdb list"), (Answer{0,
                                       "VLAN  MAC                INTERFACE  TYPE\n"
                                       "20    52:54:00:12:34:57  Cpu        4\n"
                                       "100   52:54:00:12:34:56  Cpu        4\n",
                                       ""}));
  EXPECT_EQ(vmctl("fdb list -o name").out, "20/52:54:00:12:34:57\n100/52:54:00:12:34:56\n");
}

TEST_F(FdbVerb, TellsInWideWhichBridgeHasTheEntry) {
  put("fdb", "20/52:54:00:12:34:57", R"({"intf":"Cpu","entryType":4,"bridge":"br0"})");
  put("fdb", "100/52:54:00:12:34:56", R"({"intf":"Cpu","entryType":4,"bridge":""})");
  EXPECT_EQ(vmctl("fdb list -o wide"), (Answer{0,
                                               "VLAN  MAC                INTERFACE  TYPE  BRIDGE\n"
                                               "20    52:54:00:12:34:57  Cpu        4     br0\n"
                                               "100   52:54:00:12:34:56  Cpu        4     -\n",
                                               ""}));
}

TEST_F(FdbVerb, ListGivesJson) {
  put("fdb", "100/52:54:00:12:34:56", R"({"intf":"Cpu","entryType":4})");
  EXPECT_EQ(vmctl("fdb list -o json"), (Answer{0, R"({
  "version": 1,
  "fdb": [
    {
      "vlanId": 100,
      "macAddr": "52:54:00:12:34:56",
      "intf": "Cpu",
      "entryType": 4
    }
  ]
}
)",
                                               ""}));
}

TEST_F(FdbVerb, ListOfNothing) {
  EXPECT_EQ(vmctl("fdb list"), (Answer{0, "", "there are no static MAC entries\n"}));
  daemonRuns_ = false;
  hasStatus_ = false;
  EXPECT_EQ(vmctl("fdb list -o json"),
            (Answer{0, "{\n  \"version\": 1,\n  \"stale\": true,\n  \"fdb\": []\n}\n", staleLine}));
}

}  // namespace
}  // namespace ctl
