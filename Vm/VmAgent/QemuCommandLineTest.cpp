// What QEMU is told at its start, and the probe of the disk image.
#include <fcntl.h>

#include <filesystem>
#include <fstream>

#include "Vm/VmAgent/QemuCommandLine.h"
#include "Vm/VmAgent/fakes/AgentFixture.h"
#include "guest/VmFiles.h"

namespace Vm {

namespace {

using fakes::DiskImage;
using testing::ElementsAre;

// The line's fixed beginning.
constexpr const char* fixed =
    "/usr/bin/qemu-system-x86_64 -S -M pc -enable-kvm -smp 1 -nodefaults -nodefconfig "
    "-no-user-config -rtc base=utc -chardev pty,id=serial0 -device isa-serial,chardev=serial0 ";

class QemuCommandLine : public AgentFixture {
 protected:
  void SetUp() override {
    start();
    web1 = addVm("web1");
    forget();
  }
  // Composed, with the disk as DISK.
  std::string composed(const std::string& path) {
    vm("web1")->doComposeQemuCommandLine();
    const Lines lines = normalised({vm("web1")->qemuCommandLine().str()}, path);
    return lines.front();
  }
  std::string composed() { return composed(disk.path()); }
  // The line's words from `first` on, up to `count` of them.
  std::string words(const std::string& first, size_t count) {
    const std::string line = composed();
    std::istringstream in(line.substr(std::min(line.find(first), line.size())));
    std::string found;
    std::string word;
    for (size_t i = 0; i < count && in >> word; ++i) found += (i == 0 ? "" : " ") + word;
    return found;
  }

  VmConfig::Ptr web1;
};

TEST_F(QemuCommandLine, OfAHardDiskIsExactlyThis) {
  EXPECT_EQ(composed(),
            std::string(fixed) +
                "-m 256 -name web1 "
                "-chardev socket,id=monitor,path=/var/run/web1.monitor,server,nowait "
                "-mon chardev=monitor,mode=control -usb -device usb-tablet,id=input0 -nographic "
                "-device cirrus-vga -boot order=dc -drive file=DISK,if=none,id=ide-drive0 "
                "-device ide-hd,drive=ide-drive0,bus=ide.0,unit=0 ");
}

// The agent spells both itself; all others go by guest/.
TEST_F(QemuCommandLine, NamesTheProgramAndTheMonitorThatTheOthersLookFor) {
  EXPECT_TRUE(composed().starts_with(guest::qemuPath + std::string(" ")));
  EXPECT_EQ(monitorPath(web1).str(), guest::monitorOf("web1"));
}

TEST_F(QemuCommandLine, OfACdWithTwoCardsIsExactlyThis) {
  const DiskImage cd(DiskImage::Kind::cdRom);
  web1->diskImageIs(cd.path());
  web1->vncPortIs(5903);
  web1->memoryIs(2048);
  addCard(web1, "nic1", "52-54-00-AA-BB-02", "Vlan200")->modelIs("e1000");
  addCard(web1, "nic0", "52:54:00:AA:BB:01", "Vlan100");
  EXPECT_EQ(composed(cd.path()),
            std::string(fixed) +
                "-m 2048 -name web1 "
                "-chardev socket,id=monitor,path=/var/run/web1.monitor,server,nowait "
                "-mon chardev=monitor,mode=control -usb -device usb-tablet,id=input0 "
                "-vnc 0.0.0.0:3 -device cirrus-vga -boot order=dc "
                "-drive file=DISK,if=none,id=ide-drive0 "
                "-device ide-cd,drive=ide-drive0,bus=ide.0,unit=0 "
                "-device virtio-net-pci,id=net0,mac=52:54:00:aa:bb:01 "
                "-device e1000,id=net1,mac=52:54:00:aa:bb:02 ");
}

TEST_F(QemuCommandLine, IsTracedWhenItIsDone) {
  const std::string line = composed();
  EXPECT_THAT(said(), ElementsAre("8 void Vm::VmConfigSm::doComposeQemuCommandLine() for web1",
                                  "8 int diskIsCDROM(std::string) image path DISK",
                                  "8 doComposeQemuCommandLine qemu cmd line: " + line));
}

TEST_F(QemuCommandLine, IsToldOfAsEmptyFirstAndThenWhole) {
  const std::string line = composed();
  recorder->watch(vm("web1"));
  composed();
  EXPECT_THAT(normalised(effects.take(), disk.path()),
              ElementsAre("VmConfigSm.qemuCommandLine = ", "VmConfigSm.qemuCommandLine = " + line));
}

TEST_F(QemuCommandLine, WithoutCardsMakesNoCard) {
  composed();
  EXPECT_TRUE(vm("web1")->vnics().empty());
}

TEST_F(QemuCommandLine, RegistersACardForEachConfiguredOne) {
  addCard(web1, "b", "52:54:00:00:00:02", "Vlan200");
  addCard(web1, "a", "52:54:00:00:00:01", "Vlan100");
  composed();
  ASSERT_EQ(vm("web1")->vnics().size(), 2u);
  const auto first = vm("web1")->vnic("net0");
  EXPECT_EQ(first->backendId(), "hostnet0");
  EXPECT_EQ(first->macAddr().text(), "52:54:00:00:00:01");
  EXPECT_EQ(first->backendDev(), "Vlan100");
  EXPECT_EQ(first->macvtapFd(), Vnic::noFd);
  EXPECT_TRUE(first->macvtapDev().empty());
  EXPECT_EQ(first->status(), Vnic::linkUninitialized);
  const auto second = vm("web1")->vnic("net1");
  EXPECT_EQ(second->backendId(), "hostnet1");
  EXPECT_EQ(second->macAddr().text(), "52:54:00:00:00:02");
  EXPECT_EQ(second->backendDev(), "Vlan200");
}

TEST_F(QemuCommandLine, NumbersTwelveCardsInTheOrderOfTheirKeys) {
  for (int i = 0; i < 12; ++i)
    addCard(web1, "nic" + std::to_string(i), "52:54:00:00:00:" + std::to_string(10 + i), "Vlan1");
  // nic0, nic1, nic10, nic11, nic2, …
  std::string expected;
  const int order[] = {0, 1, 10, 11, 2, 3, 4, 5, 6, 7, 8, 9};
  for (int n = 0; n < 12; ++n)
    expected += "-device virtio-net-pci,id=net" + std::to_string(n) +
                ",mac=52:54:00:00:00:" + std::to_string(10 + order[n]) + " ";
  EXPECT_TRUE(composed().ends_with("unit=0 " + expected)) << composed();
  EXPECT_EQ(vm("web1")->vnics().size(), 12u);
  EXPECT_EQ(vm("web1")->vnic("net11")->backendId(), "hostnet11");
}

TEST_F(QemuCommandLine, HasADisplayForTheElevenPortsFrom5900OnOnly) {
  const auto display = [this](uint32_t port) {
    web1->vncPortIs(port);
    const std::string found = words("-vnc", 2);
    return found.empty() ? words("-nographic", 1) : found;
  };
  EXPECT_EQ(display(5900), "-vnc 0.0.0.0:0");
  EXPECT_EQ(display(5901), "-vnc 0.0.0.0:1");
  EXPECT_EQ(display(5910), "-vnc 0.0.0.0:10");
  for (const uint32_t none : {0U, 1U, 10U, 5899U, 5911U, 0xFFFFFFFFU})
    EXPECT_EQ(display(none), "-nographic") << none;
}

TEST_F(QemuCommandLine, HasACirrusCardWithAndWithoutADisplay) {
  EXPECT_EQ(words("-nographic", 3), "-nographic -device cirrus-vga");
  web1->vncPortIs(5900);
  EXPECT_EQ(words("-vnc", 4), "-vnc 0.0.0.0:0 -device cirrus-vga");
}

TEST_F(QemuCommandLine, WritesMemoryAsASignedNumber) {
  const auto memory = [this](uint32_t mebibytes) {
    web1->memoryIs(mebibytes);
    return words("-m ", 2);
  };
  EXPECT_EQ(memory(0), "-m 0");
  EXPECT_EQ(memory(0x7FFFFFFF), "-m 2147483647");
  EXPECT_EQ(memory(0x80000000), "-m -2147483648");
  EXPECT_EQ(memory(0xFFFFFFFF), "-m -1");
}

TEST_F(QemuCommandLine, IsNotQuotedWhereANameOrAPathHoldsABlank) {
  const auto odd = addVm("two words");
  const std::string path = std::filesystem::temp_directory_path() / "vmagent-disk copy";
  std::filesystem::copy_file(disk.path(), path, std::filesystem::copy_options::overwrite_existing);
  odd->diskImageIs(path);
  vm("two words")->doComposeQemuCommandLine();
  std::filesystem::remove(path);
  const std::string line = vm("two words")->qemuCommandLine().str();
  EXPECT_NE(line.find(" -name two words -chardev "), std::string::npos);
  EXPECT_NE(line.find(",path=/var/run/two words.monitor,server"), std::string::npos);
  EXPECT_NE(line.find(" file=" + path + ",if=none"), std::string::npos);
}

TEST_F(QemuCommandLine, IsEmptyAfterAFailedProbeAndNoCardIsMade) {
  addCard(web1, "nic0", "52:54:00:00:00:01", "Vlan100");
  web1->diskImageIs("/nowhere/disk.img");
  forget();
  vm("web1")->doComposeQemuCommandLine();
  EXPECT_TRUE(vm("web1")->qemuCommandLine().empty());
  EXPECT_TRUE(vm("web1")->vnics().empty());
  EXPECT_THAT(said(), ElementsAre("8 void Vm::VmConfigSm::doComposeQemuCommandLine() for web1",
                                  "8 int diskIsCDROM(std::string) image path /nowhere/disk.img",
                                  "1 diskIsCDROM FAIL: cannot open file /nowhere/disk.img"));
}

TEST_F(QemuCommandLine, DoesNotOutliveAFailedRecomposition) {
  composed();
  web1->diskImageIs("/nowhere/disk.img");
  vm("web1")->doComposeQemuCommandLine();
  EXPECT_TRUE(vm("web1")->qemuCommandLine().empty());
}

TEST_F(QemuCommandLine, FollowsTheConfigurationWhenComposedAgain) {
  composed();
  web1->memoryIs(1024);
  addCard(web1, "nic0", "52:54:00:00:00:01", "Vlan100");
  EXPECT_EQ(words("-m ", 2), "-m 1024");
  EXPECT_EQ(words("virtio-net-pci", 1), "virtio-net-pci,id=net0,mac=52:54:00:00:00:01");
}

TEST_F(QemuCommandLine, KeepsTheCardsThatThereAreWhenComposedAgain) {
  addCard(web1, "nic0", "52:54:00:00:00:01", "Vlan100");
  composed();
  const auto card = vm("web1")->vnic("net0");
  card->statusIs(Vnic::linkDown);
  web1->vnicConfig("nic0")->intfNameIs("Vlan200");
  composed();
  EXPECT_EQ(vm("web1")->vnic("net0"), card);
  EXPECT_EQ(card->backendDev(), "Vlan200");
  EXPECT_EQ(card->status(), Vnic::linkDown);
}

TEST_F(QemuCommandLine, IsEmptyWhenACardReturnsWithAnotherMacAddress) {
  addCard(web1, "nic0", "52:54:00:00:00:01", "Vlan100");
  composed();
  web1->vnicConfig("nic0")->macAddrIs(rt::EthAddr(rt::String("52:54:00:00:00:02")));
  EXPECT_THROW(composed(), rt::ReinstantiationException);
  EXPECT_TRUE(vm("web1")->qemuCommandLine().empty());
}

TEST(MonitorPath, NamesTheVm) {
  EXPECT_EQ(monitorPath(rt::make<VmConfig>("web1")), "/var/run/web1.monitor");
  EXPECT_EQ(monitorPath(rt::make<VmConfig>("")), "/var/run/.monitor");
}

class DiskProbe : public testing::Test {
 protected:
  // How many of our descriptors stand for that file, but for the image's own, and whether all are
  // close-on-exec.
  static std::pair<int, bool> descriptorsOf(const std::string& path) {
    int count = 0;
    bool closedOnExec = true;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      if (entry.path() == path || !std::filesystem::equivalent(entry.path(), path, gone)) continue;
      ++count;
      const int number = std::stoi(entry.path().filename());
      closedOnExec = closedOnExec && (fcntl(number, F_GETFD) & FD_CLOEXEC) != 0;
    }
    return {count, closedOnExec};
  }
  rt::fakes::TraceRecorder traces;
};

TEST_F(DiskProbe, TellsCdHardDiskAndFailure) {
  const DiskImage cd(DiskImage::Kind::cdRom);
  const DiskImage hardDisk(DiskImage::Kind::hardDisk);
  const DiskImage tooShort(DiskImage::Kind::tooShort);
  EXPECT_EQ(diskIsCDROM(cd.path()), 0);
  EXPECT_EQ(diskIsCDROM(hardDisk.path()), 1);
  EXPECT_LT(diskIsCDROM(tooShort.path()), 0);
  EXPECT_LT(diskIsCDROM("/nowhere/disk.img"), 0);
  EXPECT_LT(diskIsCDROM("/usr"), 0);
  EXPECT_LT(diskIsCDROM(""), 0);
}

TEST_F(DiskProbe, WantsTheMarkAtItsPlace) {
  const DiskImage image(DiskImage::Kind::hardDisk);
  std::fstream file(image.path(), std::ios::in | std::ios::out);
  file.seekp(32768) << "CD001";
  file.flush();
  EXPECT_EQ(diskIsCDROM(image.path()), 1);
}

TEST_F(DiskProbe, WantsTheMarkInCapitals) {
  const DiskImage image(DiskImage::Kind::hardDisk);
  std::fstream file(image.path(), std::ios::in | std::ios::out);
  file.seekp(32769) << "cd001";
  file.flush();
  EXPECT_EQ(diskIsCDROM(image.path()), 1);
}

TEST_F(DiskProbe, ClosesTheFileAfterASuccessfulRead) {
  const DiskImage cd(DiskImage::Kind::cdRom);
  diskIsCDROM(cd.path());
  EXPECT_EQ(descriptorsOf(cd.path()).first, 0);
}

TEST_F(DiskProbe, LeavesAFileOpenThatItCannotReadButNotToGuests) {
  const DiskImage tooShort(DiskImage::Kind::tooShort);
  diskIsCDROM(tooShort.path());
  EXPECT_EQ(descriptorsOf(tooShort.path()), std::pair(1, true));
}

}  // namespace

}  // namespace Vm
