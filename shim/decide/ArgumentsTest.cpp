// The agent's command line, and what QEMU is started with.
#include <gmock/gmock.h>

#include <sstream>

#include "shim/decide/Arguments.h"

namespace shim {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

std::vector<std::string> words(const std::string& line) {
  std::istringstream in(line);
  std::vector<std::string> all;
  for (std::string word; in >> word;) all.push_back(word);
  return all;
}

std::string joined(const std::vector<std::string>& all) {
  std::string line;
  for (const std::string& word : all) line += (line.empty() ? "" : " ") + word;
  return line;
}

// What the agent writes, but for the program.
std::string agentLine(const std::string& display = "-nographic", const std::string& drive = "hd",
                      const std::string& cards = "") {
  return "-S -M pc -enable-kvm -smp 1 -nodefaults -nodefconfig -no-user-config -rtc base=utc "
         "-chardev pty,id=serial0 -device isa-serial,chardev=serial0 -m 256 -name guest0 "
         "-chardev socket,id=monitor,path=/var/run/guest0.monitor,server,nowait "
         "-mon chardev=monitor,mode=control -usb -device usb-tablet,id=input0 " +
         display +
         " -device cirrus-vga -boot order=dc -drive file=/images/web.img,if=none,id=ide-drive0 "
         "-device ide-" +
         drive + ",drive=ide-drive0,bus=ide.0,unit=0" + cards;
}

std::string rewritten(const std::string& line, const Facts& facts = {}, const Policy& policy = {}) {
  return joined(rewrittenArguments(readCommandLine(words(line)), facts, policy));
}

// Of a line with these words behind what it must have.
std::string rewrittenTail(const std::string& tail) {
  const std::string head = "-name g -chardev socket,id=monitor,path=/m ";
  const std::string all = rewritten(head + tail);
  const std::string newHead = "-name g -chardev socket,id=monitor,fd=3 ";
  EXPECT_EQ(all.substr(0, newHead.size()), newHead);
  const size_t end = all.find(" -sandbox");
  return all.substr(newHead.size(), end == std::string::npos ? end : end - newHead.size());
}

std::string refusal(const std::string& line) {
  try {
    readCommandLine(words(line));
  } catch (const ArgumentError& error) {
    return error.what();
  }
  return {};
}

TEST(Arguments, OfTheAgentBecomeThoseOfAPresentDayQemu) {
  EXPECT_EQ(rewritten(agentLine()),
            "-S -M pc -accel tcg,tb-size=64 -smp 1 -nodefaults -no-user-config -rtc base=utc "
            "-chardev socket,id=serial0,fd=4 -device isa-serial,chardev=serial0 -m 256 "
            "-name guest0 -chardev socket,id=monitor,fd=3 -mon chardev=monitor,mode=control -usb "
            "-device usb-tablet,id=input0 -nographic -device cirrus-vga -boot order=dc "
            "-drive file=/images/web.img,if=none,id=ide-drive0,format=raw "
            "-device ide-hd,drive=ide-drive0,bus=ide.0,unit=0 "
            "-sandbox on,obsolete=deny,elevateprivileges=deny,spawn=deny,resourcecontrol=deny");
}

TEST(Arguments, ForACdDifferOnlyInTheDrive) {
  EXPECT_THAT(rewritten(agentLine("-nographic", "cd")),
              HasSubstr(" -drive file=/images/web.img,if=none,id=ide-drive0,format=raw "
                        "-device ide-cd,drive=ide-drive0,bus=ide.0,unit=0 -sandbox "));
}

TEST(Arguments, GiveEachImageAsDescriptorsAndWithItsFormat) {
  Facts facts;
  facts.images = {{"/images/web.img", {1, {6, 7}, "qcow2"}}, {"/second", {2, {8}, "raw"}}};
  EXPECT_THAT(rewritten(agentLine() + " -drive if=none,file=/second,id=x", facts),
              AllOf(HasSubstr(" -add-fd fd=6,set=1 -add-fd fd=7,set=1 "
                              "-drive file=/dev/fdset/1,if=none,id=ide-drive0,format=qcow2 "),
                    HasSubstr(" -add-fd fd=8,set=2 "
                              "-drive if=none,file=/dev/fdset/2,id=x,format=raw "),
                    Not(HasSubstr("/images")), Not(HasSubstr("/second"))));
}

TEST(Arguments, NameTheKindOfABlockDevice) {
  Facts facts;
  facts.images = {{"/images/web.img", {1, {6, 7}, "raw", true}}};
  EXPECT_THAT(rewritten(agentLine(), facts),
              HasSubstr("-drive file.driver=host_device,file.filename=/dev/fdset/1,if=none,"));
}

TEST(Arguments, OfAnImageThatIsNotOpenedAreNeverAnythingButRaw) {
  Facts facts;
  facts.images = {{"/other", {1, {6}, "qcow2"}}};
  EXPECT_THAT(rewritten(agentLine(), facts),
              HasSubstr("-drive file=/images/web.img,if=none,id=ide-drive0,format=raw "));
}

TEST(Arguments, KeepAFormatThatIsGiven) {
  EXPECT_EQ(rewrittenTail("-drive file=/a,format=vmdk"), "-drive file=/a,format=vmdk");
}

TEST(Arguments, LeaveADriveWithoutAFileAlone) {
  EXPECT_EQ(rewrittenTail("-drive if=none,id=x"), "-drive if=none,id=x");
}

TEST(Arguments, TakeADoubledCommaForPartOfAPath) {
  const CommandLine line = readCommandLine(
      words("-name g -chardev socket,id=monitor,path=/m -drive file=/a,,b,if=none"));
  ASSERT_EQ(line.drives.size(), 1U);
  EXPECT_EQ(line.drives[0].path, "/a,b");
  Facts facts;
  facts.images = {{"/a,b", {1, {6}, "qcow2"}}};
  EXPECT_THAT(joined(rewrittenArguments(line, facts, {})),
              HasSubstr("-drive file=/dev/fdset/1,if=none,format=qcow2"));
}

TEST(Arguments, TellADiskFromACd) {
  const auto isCd = [](const std::string& drive) {
    return readCommandLine(words(agentLine("-nographic", drive))).drives.at(0).isCd;
  };
  EXPECT_FALSE(isCd("hd"));
  EXPECT_TRUE(isCd("cd"));
  const std::string head = "-name g -chardev socket,id=monitor,path=/m ";
  const CommandLine line = readCommandLine(
      words(head + "-device ide-cd,drive=b -drive file=/a,id=a -drive file=/b,id=b"));
  ASSERT_EQ(line.drives.size(), 2U);
  EXPECT_FALSE(line.drives[0].isCd);
  EXPECT_TRUE(line.drives[1].isCd);
}

// Cards.

TEST(Arguments, OfOneCardHaveAHub) {
  EXPECT_THAT(
      rewritten(agentLine("-nographic", "hd", " -device e1000,id=net0,mac=52:54:00:12:34:56")),
      HasSubstr("unit=0 -netdev hubport,hubid=0,id=hub-net0 "
                "-device e1000,id=net0,mac=52:54:00:12:34:56,netdev=hub-net0 -sandbox"));
}

TEST(Arguments, OfTwoCardsHaveAHubEach) {
  EXPECT_THAT(rewritten(agentLine("-nographic", "hd",
                                  " -device e1000,id=net0,mac=52:54:00:12:34:56"
                                  " -device virtio-net-pci,id=net1,mac=52:54:00:12:34:57")),
              HasSubstr("-netdev hubport,hubid=0,id=hub-net0 "
                        "-device e1000,id=net0,mac=52:54:00:12:34:56,netdev=hub-net0 "
                        "-netdev hubport,hubid=1,id=hub-net1 "
                        "-device virtio-net-pci,id=net1,mac=52:54:00:12:34:57,netdev=hub-net1 "));
}

TEST(Arguments, OfTwelveCardsHaveTwelveHubs) {
  std::string cards;
  std::vector<std::string> ids;
  for (int i = 0; i < 12; ++i) {
    ids.push_back("net" + std::to_string(i));
    cards += " -device rtl8139,id=" + ids.back() + ",mac=52:54:00:00:00:" + std::to_string(10 + i);
  }
  const CommandLine line = readCommandLine(words(agentLine("-nographic", "hd", cards)));
  std::vector<std::string> found;
  for (const Card& card : line.cards) found.push_back(card.id);
  EXPECT_EQ(found, ids);
  const std::string all = joined(rewrittenArguments(line, {}, {}));
  for (int i = 0; i < 12; ++i)
    EXPECT_THAT(all, HasSubstr("-netdev hubport,hubid=" + std::to_string(i) + ",id=hub-net" +
                               std::to_string(i) + " -device rtl8139,id=net" + std::to_string(i) +
                               ",mac=52:54:00:00:00:" + std::to_string(10 + i) + ",netdev=hub-net" +
                               std::to_string(i) + " "));
}

TEST(Arguments, OfNoCardsHaveNoHub) {
  EXPECT_THAT(readCommandLine(words(agentLine())).cards, IsEmpty());
  EXPECT_THAT(rewritten(agentLine()), Not(HasSubstr("hub")));
}

TEST(Arguments, OfACardWithABackendStay) {
  const std::string card = "-device e1000,id=net0,mac=52:54:00:12:34:56,netdev=mine";
  EXPECT_EQ(rewrittenTail(card), card);
}

// Displays.

TEST(Arguments, WithoutAScreenStay) { EXPECT_EQ(rewrittenTail("-nographic"), "-nographic"); }

TEST(Arguments, ServeEachScreenNowhere) {
  for (int display = 0; display <= 10; ++display)
    EXPECT_THAT(rewritten(agentLine("-vnc 0.0.0.0:" + std::to_string(display))),
                HasSubstr(" -vnc none -device cirrus-vga "));
  EXPECT_EQ(rewrittenTail("-vnc 0.0.0.0:3,lossy=on"), "-vnc none,lossy=on");
}

TEST(Arguments, TellOfAScreenByItsNumber) {
  const auto screen = [](const std::string& display) {
    return readCommandLine(words(agentLine(display))).screen;
  };
  EXPECT_EQ(screen("-vnc 0.0.0.0:3"), 3);
  EXPECT_EQ(screen("-vnc [::1]:12,lossy=on"), 12);
  EXPECT_EQ(screen("-nographic"), std::nullopt);
  EXPECT_EQ(screen("-vnc none"), std::nullopt);
  EXPECT_EQ(screen("-vnc unix:/tmp/v"), std::nullopt);
  EXPECT_EQ(screen("-vnc 0.0.0.0:x"), std::nullopt);
}

TEST(Arguments, LeaveAScreenWithoutAnAddressAlone) {
  EXPECT_EQ(rewrittenTail("-vnc none"), "-vnc none");
  EXPECT_EQ(rewrittenTail("-vnc unix:/tmp/v"), "-vnc unix:/tmp/v");
}

// Acceleration.

TEST(Arguments, UseKvmWhenItCanBeUsed) {
  Facts facts;
  facts.kvmUsable = true;
  EXPECT_THAT(rewritten(agentLine(), facts), HasSubstr(" -accel kvm -smp 1"));
}

TEST(Arguments, UseNoKvmWhenThePolicyForbidsIt) {
  Facts facts;
  facts.kvmUsable = true;
  EXPECT_THAT(rewritten(agentLine(), facts, {guest::Acceleration::tcg}),
              HasSubstr(" -accel tcg,tb-size=64 -smp 1"));
}

TEST(Arguments, UseKvmWhenThePolicyDemandsItWhateverTheMachineIs) {
  EXPECT_THAT(rewritten(agentLine(), {}, {guest::Acceleration::kvm}),
              HasSubstr(" -accel kvm -smp 1"));
}

TEST(Arguments, SayNothingOfAccelerationUnlessAsked) {
  EXPECT_EQ(rewrittenTail("-smp 1"), "-smp 1");
}

// All else.

TEST(Arguments, ThatAreNotKnownStay) {
  const std::string all = "-watchdog-action none -device foo -netdev user,id=u --what -x -chardev";
  EXPECT_EQ(rewrittenTail(all), all);
}

TEST(Arguments, KeepOtherCharacterDevices) {
  const std::string all = "-chardev pty,id=serial1 -chardev socket,id=other,path=/p,server";
  EXPECT_EQ(rewrittenTail(all), all);
}

TEST(Arguments, WithTwoDashesAreThoseWithOne) {
  EXPECT_EQ(rewrittenTail("--nodefconfig --enable-kvm --chardev pty,id=serial0"),
            "-accel tcg --chardev socket,id=serial0,fd=4");
}

TEST(Arguments, KeepASandboxThatIsGiven) {
  EXPECT_THAT(rewritten("-name g -chardev socket,id=monitor,path=/m -sandbox off"),
              AllOf(HasSubstr("-sandbox off"), Not(HasSubstr("deny"))));
}

TEST(Arguments, TellTheNameAndTheMonitorsPath) {
  const CommandLine line = readCommandLine(words(agentLine()));
  EXPECT_EQ(line.name, "guest0");
  EXPECT_EQ(line.monitorPath, "/var/run/guest0.monitor");
  ASSERT_EQ(line.drives.size(), 1U);
  EXPECT_EQ(line.drives[0].path, "/images/web.img");
}

TEST(Arguments, WithoutANameAreRefused) {
  const std::string sentence = "the command line names no VM: it must have -name NAME";
  EXPECT_EQ(refusal("-chardev socket,id=monitor,path=/m"), sentence);
  EXPECT_EQ(refusal("-chardev socket,id=monitor,path=/m -name"), sentence);
  EXPECT_EQ(refusal(""), sentence);
}

TEST(Arguments, WithoutAMonitorAreRefused) {
  const std::string sentence =
      "the command line has no monitor: it must have -chardev socket,id=monitor,path=PATH";
  EXPECT_EQ(refusal("-name g"), sentence);
  EXPECT_EQ(refusal("-name g -chardev pty,id=monitor,path=/m"), sentence);
  EXPECT_EQ(refusal("-name g -chardev socket,id=monitor,server"), sentence);
  EXPECT_EQ(refusal("-name g -chardev socket,id=monitor,path="), sentence);
}

TEST(Arguments, WithANameThatIsNoFileNameAreRefused) {
  const std::string monitor = " -chardev socket,id=monitor,path=/m";
  EXPECT_EQ(refusal("-name ../x" + monitor),
            "-name: '../x' is refused: it must be without '/', for a directory is named by it");
  EXPECT_THAT(refusal("-name .." + monitor), HasSubstr("'..' is refused"));
  EXPECT_THAT(refusal("-name ." + monitor), HasSubstr("'.' is refused"));
  EXPECT_EQ(refusal("-name a,process=sshd" + monitor),
            "-name: 'a,process=sshd' is refused: it must be without ',', which QEMU takes for the "
            "begin of an option");
}

}  // namespace
}  // namespace shim
