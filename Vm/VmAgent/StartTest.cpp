// Starting a VM: the steps, and what becomes of each failure.
#include <sys/stat.h>

#include "Vm/VmAgent/fakes/AgentFixture.h"
#include "runtime/base/fakes/TestFolder.h"

namespace Vm {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* monitorEntry = "8 int Vm::VmConfigSm::setupMonitor() for web1";

// What a start says until it turns to the monitor, without the command line.
Lines startLines() {
  return {"8 void Vm::VmConfigSm::handleEnabled() for web1",
          std::string("8 void Vm::VmConfigSm::doTryEnableDisable() for web1") +
              " enabled (config) ? true enabled (status) ? false",
          "8 switching web1 to enabled",
          "8 void Vm::VmConfigSm::doTryEnable() for web1",
          "8 int Vm::VmConfigSm::startQemu() for web1",
          "8 void Vm::VmConfigSm::doComposeQemuCommandLine() for web1",
          "8 int diskIsCDROM(std::string) image path DISK",
          "8 Vm::ChildProcess::Ptr Vm::runCmd(char**) cmd ADDRESS"};
}

class Start : public AgentFixture {
 protected:
  void SetUp() override {
    start();
    web1 = addVm("web1");
    record = vmStatus("web1");
    recorder->watch(record);
    forget();
  }
  // Without the composed line, which has a test of its own.
  Lines saidBeforeMonitor() {
    Lines lines = before(said(), monitorEntry);
    std::erase_if(lines, [](const auto& line) {
      return line.starts_with("8 doComposeQemuCommandLine qemu cmd line: ");
    });
    return lines;
  }

  VmConfig::Ptr web1;
  VmStatus::Ptr record;
};

TEST_F(Start, TakesItsStepsInOrder) {
  web1->enabledIs(true);
  EXPECT_EQ(saidBeforeMonitor(), startLines());
  EXPECT_THAT(effects.take(), ElementsAre("fork 1000", "connect /var/run/web1.monitor",
                                          "VmStatus.state = Starting", "VmStatus.enabled = true"));
}

TEST_F(Start, SetsUpTheMonitorAfterTheProcess) {
  web1->enabledIs(true);
  const auto lines = said();
  EXPECT_EQ(withText(lines, monitorEntry).size(), 1u);
  EXPECT_NE(vm("web1")->qemuChildProcess(), nullptr);
  EXPECT_NE(vm("web1")->monSm(), nullptr);
}

TEST_F(Start, HappensAtTheMachinesConstructionWhenTheVmIsConfiguredEnabled) {
  const auto web2 = rt::make<VmConfig>("web2");
  web2->diskImageIs(disk.path());
  web2->enabledIs(true);
  config->vmConfigMount(web2);
  EXPECT_TRUE(vmStatus("web2")->enabled());
  EXPECT_THAT(effects.take(), ElementsAre("fork 1000", "connect /var/run/web2.monitor"));
}

TEST_F(Start, HappensAtTheAgentsStartForAVmThatWasThereBefore) {
  root->agentDel();
  web1->enabledIs(true);
  forget();
  start();
  EXPECT_TRUE(record->enabled());
  EXPECT_EQ(record->state(), "Starting");
  EXPECT_EQ(processes.living().size(), 1u);
  // Its session hears its own first command.
  EXPECT_THAT(converse("web1"), testing::Contains(HasSubstr("qmp_capabilities")));
  EXPECT_EQ(record->state(), "Running");
}

TEST_F(Start, EmptiesTheCommandStatusFirst) {
  record->cmdStatusStrIs("an old outcome");
  forget();
  web1->enabledIs(true);
  EXPECT_EQ(effects.take().at(0), "VmStatus.cmdStatusStr = ");
}

TEST_F(Start, EmptiesTheCommandStatusAlsoWhenItFails) {
  record->cmdStatusStrIs("an old outcome");
  web1->diskImageIs("");
  web1->enabledIs(true);
  EXPECT_TRUE(record->cmdStatusStr().empty());
  EXPECT_FALSE(record->enabled());
}

TEST_F(Start, RemovesAStaleSocketBeforeItForksAndSaysSo) {
  processes.files.insert("/var/run/web1.monitor");
  web1->enabledIs(true);
  auto expected = startLines();
  expected.insert(expected.begin() + 4, "8 doTryEnable /var/run/web1.monitor removed");
  EXPECT_EQ(saidBeforeMonitor(), expected);
  const auto done = effects.take();
  ASSERT_GE(done.size(), 2u);
  EXPECT_EQ(done[0], "unlink /var/run/web1.monitor");
  EXPECT_EQ(done[1], "fork 1000");
}

TEST_F(Start, SaysNothingOfASocketThatIsNotThere) {
  web1->enabledIs(true);
  EXPECT_THAT(withText(said(), "removed"), IsEmpty());
}

// Failures that leave the record as it was.
class FailedStart : public Start {
 protected:
  // The level-1 lines of a start that fails before QEMU runs.
  Lines failed() {
    web1->enabledIs(true);
    EXPECT_THAT(effects.take(), IsEmpty());
    EXPECT_FALSE(record->enabled());
    EXPECT_TRUE(record->state().empty());
    EXPECT_EQ(vm("web1")->qemuChildProcess(), nullptr);
    EXPECT_EQ(vm("web1")->monSm(), nullptr);
    lines = said();
    EXPECT_THAT(withText(lines, "setupMonitor"), IsEmpty());
    Lines errors = lines;
    std::erase_if(errors, [](const auto& line) { return !line.starts_with("1 "); });
    return errors;
  }
  static constexpr const char* startingFailed = "1 doTryEnable FAIL: starting qemu failed ";
  Lines lines;
};

TEST_F(FailedStart, WithoutADiskSaysNoMoreThanThat) {
  web1->diskImageIs("");
  forget();
  EXPECT_THAT(failed(), ElementsAre(startingFailed));
  EXPECT_EQ(lines.back(), startingFailed);
  EXPECT_EQ(lines.at(lines.size() - 2), "8 int Vm::VmConfigSm::startQemu() for web1");
}

TEST_F(FailedStart, OfAMissingDiskNamesIt) {
  web1->diskImageIs("/nowhere/disk.img");
  forget();
  EXPECT_THAT(failed(), ElementsAre("1 diskIsCDROM FAIL: cannot open file /nowhere/disk.img",
                                    startingFailed));
}

TEST_F(FailedStart, OfADiskTooShortNamesIt) {
  const fakes::DiskImage shortDisk(fakes::DiskImage::Kind::tooShort);
  web1->diskImageIs(shortDisk.path());
  forget();
  EXPECT_THAT(failed(), ElementsAre("1 diskIsCDROM FAIL: cannot read from file " + shortDisk.path(),
                                    startingFailed));
  EXPECT_TRUE(vm("web1")->qemuCommandLine().empty());
}

TEST_F(FailedStart, OfADirectoryNamesIt) {
  web1->diskImageIs("/usr");
  forget();
  EXPECT_THAT(failed(),
              ElementsAre("1 diskIsCDROM FAIL: cannot read from file /usr", startingFailed));
}

// The daemon's only thread would wait for somebody to write.
TEST_F(FailedStart, OfAPipeThatNobodyWritesNamesItAndWaitsForNobody) {
  const rt::fakes::TestFolder folder;
  const std::string pipe = folder / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  web1->diskImageIs(pipe);
  forget();
  EXPECT_THAT(failed(),
              ElementsAre("1 diskIsCDROM FAIL: cannot read from file " + pipe, startingFailed));
}

TEST_F(FailedStart, WithoutAPipeNamesTheErrno) {
  processes.failPipe = EMFILE;
  EXPECT_THAT(failed(), ElementsAre("1 runCmd FAIL: cannot open a pipe, err: 24",
                                    "1 startQemu FAIL: cannot create qemu process, check args ",
                                    startingFailed));
}

TEST_F(FailedStart, IsRetriedByAChangeOfTheDiskImage) {
  web1->diskImageIs("/nowhere/disk.img");
  web1->enabledIs(true);
  ASSERT_FALSE(record->enabled());
  forget();
  web1->diskImageIs(disk.path());
  EXPECT_EQ(said().at(0), "8 void Vm::VmConfigSm::handleDiskImage() for web1");
  EXPECT_TRUE(record->enabled());
  EXPECT_EQ(processes.living().size(), 1u);
}

TEST_F(FailedStart, IsRetriedByNothingElse) {
  web1->diskImageIs("/nowhere/disk.img");
  web1->enabledIs(true);
  forget();
  web1->memoryIs(1024);
  advance(60);
  EXPECT_THAT(withText(said(), "doTryEnable"), IsEmpty());
}

TEST_F(FailedStart, LeavesTheRecordsOldState) {
  record->stateIs("Stopped");
  web1->diskImageIs("");
  web1->enabledIs(true);
  EXPECT_EQ(record->state(), "Stopped");
}

TEST_F(Start, WithoutAMonitorKillsTheProcessAndStillSaysStartingAndEnabled) {
  processes.refusalsAre("web1", -1);
  web1->enabledIs(true);
  EXPECT_THAT(effects.take(), ElementsAre("fork 1000", "kill 1000 15", "VmStatus.state = Starting",
                                          "VmStatus.enabled = true"));
  EXPECT_EQ(vm("web1")->monSm(), nullptr);
  const auto lines = said();
  const auto tail = Lines(lines.end() - 5, lines.end());
  EXPECT_THAT(
      tail, ElementsAre("1 connectMonitor FAIL: cannot connect to /var/run/web1.monitor",
                        "1 setupMonitor FAIL: cannot connect to qemu monitor ",
                        "1 doTryEnable FAIL: cannot setup monitor, check if qemu process has "
                        "died, if so check qemu args ",
                        "8 void Vm::VmConfigSm::killQemu() for web1", "8 killQemu kill pid:1000"));
}

TEST_F(Start, WithoutAMonitorIsNotRepeatedUntilSwitchedOffAndOn) {
  processes.refusalsAre("web1", -1);
  web1->enabledIs(true);
  endProcess("web1", SIGTERM);
  EXPECT_EQ(record->state(), "Stopped");
  processes.refusalsAre("web1", 0);
  forget();
  advance(60);
  web1->diskImageIs("/another");
  EXPECT_THAT(effects.take(), IsEmpty());
  web1->diskImageIs(disk.path());
  web1->enabledIs(false);
  web1->enabledIs(true);
  EXPECT_EQ(record->state(), "Starting");
  EXPECT_EQ(processes.living(), std::vector<int32_t>{1001});
}

TEST_F(Start, WhileTheOldProcessEndsIsRefused) {
  web1->enabledIs(true);
  converse("web1");
  web1->enabledIs(false);
  forget();
  web1->enabledIs(true);
  EXPECT_THAT(effects.take(), IsEmpty());
  EXPECT_FALSE(record->enabled());
  EXPECT_THAT(
      said(),
      ElementsAre("8 void Vm::VmConfigSm::handleEnabled() for web1",
                  "8 void Vm::VmConfigSm::doTryEnableDisable() for web1 enabled (config) ? "
                  "true enabled (status) ? false",
                  "8 switching web1 to enabled", "8 void Vm::VmConfigSm::doTryEnable() for web1",
                  "8 int Vm::VmConfigSm::startQemu() for web1",
                  "8 startQemu qemuChildProcess with pid: <<1000 already exists",
                  "1 doTryEnable FAIL: starting qemu failed "));
}

TEST_F(Start, WithoutADiskIsRefusedBeforeTheOldProcessIsLookedFor) {
  web1->enabledIs(true);
  converse("web1");
  web1->enabledIs(false);
  web1->diskImageIs("");
  forget();
  web1->enabledIs(true);
  EXPECT_THAT(withText(said(), "startQemu"),
              ElementsAre("8 int Vm::VmConfigSm::startQemu() for web1"));
}

TEST_F(Start, OnceTheOldProcessHasEndedSucceeds) {
  web1->enabledIs(true);
  web1->enabledIs(false);
  endProcess("web1", SIGTERM);
  web1->enabledIs(true);
  EXPECT_TRUE(record->enabled());
  EXPECT_EQ(pidOf("web1"), 1001);
}

TEST_F(Start, FollowsAnEndByItselfOnlyWhenSwitchedOffAndOn) {
  web1->enabledIs(true);
  converse("web1");
  endProcess("web1", 0);
  forget();
  advance(60);
  EXPECT_THAT(withText(effects.take(), "fork"), IsEmpty());
  EXPECT_TRUE(record->enabled());
  EXPECT_EQ(record->state(), "Stopped");
  web1->enabledIs(false);
  web1->enabledIs(true);
  EXPECT_EQ(processes.living(), std::vector<int32_t>{1001});
}

}  // namespace

}  // namespace Vm
