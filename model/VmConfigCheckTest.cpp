// Each rule for one VM by itself, on both sides of its bounds.
#include <gmock/gmock.h>

#include <algorithm>

#include "model/VmConfigCheck.h"
#include "model/fakes/Limits.h"

namespace model {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using fakes::limits;

Vm::VmConfig::Ptr aVm(const char* name = "web1") {
  auto vm = rt::make<Vm::VmConfig>(name);
  vm->enabledIs(true);
  vm->diskImageIs("/images/web.iso");
  vm->memoryIs(256);
  vm->vncPortIs(5900);
  const auto card = vm->vnicConfigIs("nic00");
  card->modelIs("virtio-net-pci");
  card->macAddrIs(rt::EthAddr("52:54:00:12:34:56"));
  card->intfNameIs("Vlan100");
  return vm;
}

std::vector<std::string> textsOf(const Vm::VmConfig& vm) {
  std::vector<std::string> texts;
  for (const auto& problem : problemsOf(vm, ConfigIndex(), limits))
    texts.push_back(problem.text().str());
  return texts;
}

TEST(VmConfigCheck, FindsNothingWrongWithAGoodVm) {
  EXPECT_THAT(textsOf(*aVm()), IsEmpty());
  const auto plain = rt::make<Vm::VmConfig>("a");
  plain->diskImageIs("/a");
  plain->memoryIs(1);
  EXPECT_THAT(textsOf(*plain), IsEmpty()) << "without cards or a display";
}

TEST(VmConfigCheck, TellsAllThatIsWrongAtOnceWithFieldValueAndWhatWouldBeRight) {
  const auto vm = aVm("-web");
  vm->diskImageIs("web.iso");
  vm->memoryIs(0);
  vm->vncPortIs(80);
  vm->vnicConfig("nic00")->intfNameIs("Vlan0");
  vm->vnicConfigIs("nic01")->modelIs("e100");
  EXPECT_THAT(
      textsOf(*vm),
      ElementsAre(
          "name: '-web' is refused: must be 1 to 64 of A-Z a-z 0-9 . _ -, the first a letter or a "
          "digit",
          "diskImage: 'web.iso' is refused: must be an absolute path without blanks, commas and "
          "control characters",
          "memory: '0' is refused: must be 1 to 8192 (mebibytes; this machine has no more)",
          "vncPort: '80' is refused: must be 5900 to 5910, or 0 for no display",
          "vnicConfig.nic00.intfName: 'Vlan0' is refused: must be Vlan1 to Vlan4094, without "
          "leading zeros, signs or anything behind the number",
          "vnicConfig.nic01.model: 'e100' is refused: must be a network card of QEMU's; did you "
          "mean 'e1000'?",
          "vnicConfig.nic01.macAddr: '00:00:00:00:00:00' is refused: must be one station's "
          "address: "
          "not all zeros, the second digit even",
          "vnicConfig.nic01.intfName: '' is refused: must be 1 to 15 of A-Z a-z 0-9 / . _ -"));
}

TEST(VmConfigCheck, HoldsForADisabledVmToo) {
  const auto vm = aVm();
  vm->enabledIs(false);
  EXPECT_THAT(textsOf(*vm), IsEmpty());
  vm->memoryIs(0);
  vm->vncPortIs(1);
  EXPECT_EQ(textsOf(*vm).size(), 2U);
}

// One field each.

TEST(VmConfigCheckName, TakesLettersDigitsDotsUnderscoresAndDashes) {
  for (const char* good : {"a", "Z", "0", "web1", "a.b_c-d", "9-", "a..", "A9._-"})
    EXPECT_EQ(nameRight(good), std::nullopt) << good;
  EXPECT_EQ(nameRight(std::string(64, 'a')), std::nullopt);
}

TEST(VmConfigCheckName, RefusesAllElse) {
  for (const char* bad : {"", ".", "..", ".a", "-a", "_a", "a b", "a/b", "a,b", "a%", "a\n",
                          "\u00e9", "a:", "a@", "a[", "a`", "a{", "a^"})
    EXPECT_TRUE(nameRight(bad)) << bad;
  EXPECT_TRUE(nameRight(std::string(65, 'a')));
  EXPECT_TRUE(nameRight(std::string_view("a\0", 2)));
}

TEST(VmConfigCheckDiskImage, TakesAnAbsolutePath) {
  for (const char* good : {"/", "/a", "/images/web-1.iso", "/a=b;c'd\"$(e)", "/\u00e9", "//a/../b"})
    EXPECT_EQ(diskImageRight(good), std::nullopt) << good;
}

TEST(VmConfigCheckDiskImage, RefusesWhatIsNoneOrWhatQemusCommandLineWouldSplit) {
  for (const char* bad : {"", "a", "./a", "~/a", "/a b", "/a ", " /a", "/a,b", "/a\tb", "/a\nb",
                          "/a\x01", "/a\x1f", "/a\x7f", "file:/a"})
    EXPECT_TRUE(diskImageRight(bad)) << bad;
  EXPECT_TRUE(diskImageRight(std::string_view("/a\0b", 4)));
}

TEST(VmConfigCheckMemory, IsFromOneToWhatTheMachineHas) {
  EXPECT_TRUE(memoryRight(0, limits));
  EXPECT_EQ(memoryRight(1, limits), std::nullopt);
  EXPECT_EQ(memoryRight(8192, limits), std::nullopt);
  EXPECT_TRUE(memoryRight(8193, limits));
  EXPECT_TRUE(memoryRight(4294967295, limits));
}

TEST(VmConfigCheckMemory, OfThisMachineIsNeitherZeroNorTooMuchForAnInt) {
  EXPECT_GT(machineLimits().memory, 0U);
  EXPECT_LE(machineLimits().memory, 2147483647U);
}

TEST(VmConfigCheckVncPort, IsZeroOrOneOfEleven) {
  for (const uint32_t good : {0U, 5900U, 5901U, 5910U})
    EXPECT_EQ(vncPortRight(good), std::nullopt) << good;
  for (const uint32_t bad : {1U, 5899U, 5911U, 65536U + 5900U, 4294967295U})
    EXPECT_TRUE(vncPortRight(bad)) << bad;
}

TEST(VmConfigCheckMacAddr, IsOneStations) {
  for (const char* good :
       {"00:00:00:00:00:01", "02:00:00:00:00:00", "52:54:00:12:34:56", "fe:ff:ff:ff:ff:ff"})
    EXPECT_EQ(macAddrRight(rt::EthAddr(good)), std::nullopt) << good;
  for (const char* bad : {"00:00:00:00:00:00", "01:00:00:00:00:00", "ff:ff:ff:ff:ff:ff",
                          "33:33:00:00:00:01", "01:00:5e:00:00:01"})
    EXPECT_TRUE(macAddrRight(rt::EthAddr(bad))) << bad;
}

TEST(VmConfigCheckModel, IsOneOfQemus) {
  for (const auto good : nicModels()) EXPECT_EQ(modelRight(good), std::nullopt) << good;
  EXPECT_EQ(nicModels().size(), 25U);
  EXPECT_TRUE(std::is_sorted(nicModels().begin(), nicModels().end())) << "it is searched so";
  for (const char* bad :
       {"", "E1000", "e1000 ", "virtio", "e1000,netdev=x", "usb-net", "cirrus-vga"})
    EXPECT_TRUE(modelRight(bad)) << bad;
}

TEST(VmConfigCheckModel, IsSuggestedWhenItIsNearlyRight) {
  EXPECT_EQ(modelRight("E1000"), "must be a network card of QEMU's; did you mean 'e1000'?");
  EXPECT_EQ(modelRight("virtio-pci-net"),
            "must be a network card of QEMU's, such as virtio-net-pci, e1000 or rtl8139");
  for (const char* text : {"virtio", "virtio-net"})
    EXPECT_EQ(modelRight(text), "must be a network card of QEMU's; did you mean 'virtio-net-pci'?");
  EXPECT_EQ(modelRight("rtl8193"), "must be a network card of QEMU's; did you mean 'rtl8139'?");
}

TEST(VmConfigCheckIntfName, TakesFifteenBytesOfItsCharacters) {
  for (const char* good : {"a", "Ethernet1/1", "br0.100", "a_b-c", "123456789012345", "-", "."})
    EXPECT_EQ(intfNameRight(good), std::nullopt) << good;
  for (const char* bad :
       {"", "1234567890123456", "a b", "a:b", "a,b", "a\n", "\u00e9", "a@b", "a%d"})
    EXPECT_TRUE(intfNameRight(bad)) << bad;
  EXPECT_TRUE(intfNameRight(std::string_view("a\0", 2)));
}

TEST(VmConfigCheckIntfName, OfAVlanHasANumberFromOneTo4094AndNothingElse) {
  for (const char* good : {"Vlan1", "Vlan9", "Vlan10", "Vlan100", "Vlan4094"})
    EXPECT_EQ(intfNameRight(good), std::nullopt) << good;
  for (const char* bad :
       {"Vlan0", "Vlan4095", "Vlan01", "Vlan0100", "Vlan00", "Vlan-1", "Vlan+1", "Vlan-", "Vlan+",
        "Vlan100.5", "Vlan1a", "Vlan1/1", "Vlan65537", "Vlan99999999999", "Vlan1 ", "Vlan-0"})
    EXPECT_TRUE(intfNameRight(bad)) << bad;
}

TEST(VmConfigCheckIntfName, IsNoVlanUnlessADigitOrASignFollows) {
  for (const char* good :
       {"Vlan", "Vlana1", "Vlan.1", "Vlan_1", "Vlan/1", "vlan0", "VLAN0", "aVlan0"})
    EXPECT_EQ(intfNameRight(good), std::nullopt) << good;
}

}  // namespace
}  // namespace model
