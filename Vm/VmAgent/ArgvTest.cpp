// The command line as an argument vector.
#include "Vm/VmAgent/fakes/AgentFixture.h"

namespace Vm {

namespace {

using testing::ElementsAre;

class Argv : public AgentFixture {
 protected:
  void SetUp() override {
    start();
    web1 = addVm("web1");
  }
  // The words of a vector, which is given back.
  static std::vector<std::string> wordsOf(const VmConfigSm::Ptr& machine) {
    auto** const argv = static_cast<char**>(machine->allocArgvFromQemuCommandline());
    std::vector<std::string> words;
    for (char** word = argv; *word; ++word) words.emplace_back(*word);
    machine->freeArgv(argv);
    return words;
  }

  VmConfig::Ptr web1;
};

TEST_F(Argv, HasTheLinesWordsInOrderAndNoEmptyOneForItsTrailingBlank) {
  vm("web1")->doComposeQemuCommandLine();
  ASSERT_TRUE(vm("web1")->qemuCommandLine().str().ends_with(' '));
  EXPECT_THAT(
      wordsOf(vm("web1")),
      ElementsAre("/usr/bin/qemu-system-x86_64", "-S", "-M", "pc", "-enable-kvm", "-smp", "1",
                  "-nodefaults", "-nodefconfig", "-no-user-config", "-rtc", "base=utc", "-chardev",
                  "pty,id=serial0", "-device", "isa-serial,chardev=serial0", "-m", "256", "-name",
                  "web1", "-chardev", "socket,id=monitor,path=/var/run/web1.monitor,server,nowait",
                  "-mon", "chardev=monitor,mode=control", "-usb", "-device", "usb-tablet,id=input0",
                  "-nographic", "-device", "cirrus-vga", "-boot", "order=dc", "-drive",
                  "file=" + disk.path() + ",if=none,id=ide-drive0", "-device",
                  "ide-hd,drive=ide-drive0,bus=ide.0,unit=0"));
}

TEST_F(Argv, SplitsANameWithABlankIntoTwoWords) {
  addVm("two  words\tand\nmore");
  const auto machine = vm("two  words\tand\nmore");
  machine->doComposeQemuCommandLine();
  const auto words = wordsOf(machine);
  const auto name = std::find(words.begin(), words.end(), "-name");
  EXPECT_THAT(std::vector(name, name + 5), ElementsAre("-name", "two", "words", "and", "more"));
}

TEST_F(Argv, IsNullForALineWithoutAWord) {
  ASSERT_TRUE(vm("web1")->qemuCommandLine().empty());
  EXPECT_EQ(vm("web1")->allocArgvFromQemuCommandline(), nullptr);
}

TEST_F(Argv, IsNullAfterACompositionThatFailed) {
  vm("web1")->doComposeQemuCommandLine();
  web1->diskImageIs("/nowhere/disk.img");
  vm("web1")->doComposeQemuCommandLine();
  EXPECT_EQ(vm("web1")->allocArgvFromQemuCommandline(), nullptr);
}

TEST_F(Argv, IsACopyThatOutlivesTheLine) {
  vm("web1")->doComposeQemuCommandLine();
  auto** const argv = static_cast<char**>(vm("web1")->allocArgvFromQemuCommandline());
  web1->diskImageIs("/nowhere/disk.img");
  vm("web1")->doComposeQemuCommandLine();
  EXPECT_STREQ(argv[1], "-S");
  vm("web1")->freeArgv(argv);
}

TEST_F(Argv, OfNullIsFreedByDoingNothing) {
  forget();
  vm("web1")->freeArgv(nullptr);
  EXPECT_THAT(said(), testing::IsEmpty());
}

void allocateWithoutMemory() {
  fakes::AgentWorld world;
  world.start();
  world.addVm("web1");
  world.vm("web1")->doComposeQemuCommandLine();
  rt::traceSinkIs(nullptr);  // to standard error
  rt::vmTrace().levelsIs(rt::TraceHandle::defaultLevels);
  world.processes.failCalloc = true;
  world.vm("web1")->allocArgvFromQemuCommandline();
}

TEST(ArgvDeathTest, WithoutMemorySaysSoAndEndsTheProcess) {
  EXPECT_DEATH(allocateWithoutMemory(),
               " 1 .*QemuCommandLine.cpp:[0-9]+ allocArgvFromQemuCommandline FAIL: cannot alloc "
               "\n.*assertion failed: 0\n$");
}

}  // namespace

}  // namespace Vm
