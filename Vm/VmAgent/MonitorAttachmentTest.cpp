// Connecting a VM's monitor: the socket, the descriptor, the records and the end of a session.
#include <fcntl.h>

#include <filesystem>

#include "Vm/VmAgent/fakes/NicWorld.h"

namespace Vm::fakes {

namespace {

using testing::ElementsAre;
using testing::Not;

class MonitorAttachment : public NicTest {};
class MonitorAttachmentDeathTest : public testing::Test {};

size_t openSockets() {
  size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const auto target = std::filesystem::read_symlink(entry.path(), gone).string();
    if (target.starts_with("socket:")) ++count;
  }
  return count;
}

// A VM whose monitor path has `length` characters.
std::string nameForPathOf(size_t length) {
  return std::string(length - std::string("/var/run/.monitor").size(), 'v');
}

TEST_F(MonitorAttachment, ConnectsAfterTheProcessWasStarted) {
  enable();
  EXPECT_THAT(effects.take(), ElementsAre("fork 1000", "connect /var/run/web1.monitor"));
}

TEST_F(MonitorAttachment, IsTracedStepByStep) {
  enable();
  auto said = traces.take(8);
  said.erase(said.begin(),
             std::find(said.begin(), said.end(), "int Vm::VmConfigSm::setupMonitor() for web1"));
  said.resize(4);
  EXPECT_THAT(said, ElementsAre("int Vm::VmConfigSm::setupMonitor() for web1",
                                "connectMonitor Trying to connect to /var/run/web1.monitor",
                                "connectMonitor connected to /var/run/web1.monitor",
                                "monFd is" +
                                    ("web1-monitor (descriptor " +
                                     std::to_string(vm()->monFd()->descriptor())) +
                                    ")"));
}

TEST_F(MonitorAttachment, SucceedsOnTheSixteenthAttemptThreeSecondsLate) {
  processes.refusalsAre("web1", 15);
  enable();
  EXPECT_EQ(processes.connectAttempts("web1"), 16);
  EXPECT_EQ(processes.pauses, std::vector<uint64_t>(15, 200'000));
  EXPECT_TRUE(vm()->monSm());
  EXPECT_THAT(failures(), ElementsAre());
}

TEST_F(MonitorAttachment, SucceedsOnTheLastAttempt) {
  processes.refusalsAre("web1", 51);
  enable();
  EXPECT_EQ(processes.connectAttempts("web1"), 52);
  EXPECT_EQ(processes.pauses, std::vector<uint64_t>(51, 200'000));
  EXPECT_TRUE(vm()->monSm());
}

TEST_F(MonitorAttachment, GivesUpAfterFiftyTwoAttemptsAndFiftyOnePauses) {
  processes.refusalsAre("web1", -1);
  enable();
  EXPECT_EQ(processes.connectAttempts("web1"), 52);
  EXPECT_EQ(processes.pauses, std::vector<uint64_t>(51, 200'000));
  EXPECT_THAT(failures(),
              ElementsAre("connectMonitor FAIL: cannot connect to /var/run/web1.monitor",
                          "setupMonitor FAIL: cannot connect to qemu monitor ",
                          "doTryEnable FAIL: cannot setup monitor, check if qemu process has died,"
                          " if so check qemu args "));
}

TEST_F(MonitorAttachment, LeavesNothingBehindWhenItFails) {
  processes.refusalsAre("web1", -1);
  start();
  const size_t before = openSockets();
  enable();
  EXPECT_EQ(openSockets(), before);
  EXPECT_FALSE(vm()->monFd());
  EXPECT_FALSE(vm()->monitorInput());
  EXPECT_FALSE(vm()->monitorOutput());
  EXPECT_FALSE(vm()->monitorStatus());
  EXPECT_FALSE(vm()->monSm());
}

TEST_F(MonitorAttachment, FailsWithoutASocketAndDoesNotTryToConnect) {
  processes.failSocket = EMFILE;
  enable();
  EXPECT_THAT(failures(),
              ElementsAre("connectMonitor FAIL: cannot open socket",
                          "setupMonitor FAIL: cannot connect to qemu monitor ",
                          "doTryEnable FAIL: cannot setup monitor, check if qemu process has died,"
                          " if so check qemu args "));
  EXPECT_EQ(processes.connectAttempts("web1"), 0);
  EXPECT_THAT(processes.pauses, ElementsAre());
}

TEST_F(MonitorAttachment, TakesAPathOf107Characters) {
  const std::string name = nameForPathOf(107);
  addVm(name)->enabledIs(true);
  start();
  EXPECT_EQ(processes.connections(name), 1U);
}

TEST_F(MonitorAttachment, FailsOnAPathTooLongForAnAddress) {
  const std::string name = nameForPathOf(109);
  addVm(name)->enabledIs(true);
  start();
  EXPECT_EQ(processes.connections(name), 0U);
  EXPECT_EQ(processes.pauses.size(), 51U);
  EXPECT_THAT(failures(),
              ElementsAre("connectMonitor FAIL: cannot connect to /var/run/" + name + ".monitor",
                          "setupMonitor FAIL: cannot connect to qemu monitor ",
                          "doTryEnable FAIL: cannot setup monitor, check if qemu process has died,"
                          " if so check qemu args "));
}

TEST_F(MonitorAttachment, SetsItsDescriptorUpInOrderThenItsRecordsThenTheSession) {
  start();
  recorder->watch(vm());
  recorder->then = [&](const std::string& line) {
    if (line == "VmConfigSm.monFd") recorder->watch(vm()->monFd());
  };
  effects.take();
  enable();
  auto done = effects.take();
  done.erase(done.begin(), std::find(done.begin(), done.end(), "connect /var/run/web1.monitor"));
  EXPECT_THAT(
      done,
      ElementsAre("connect /var/run/web1.monitor", "VmConfigSm.monFd",
                  "FileDescriptor.descriptor = " + std::to_string(vm()->monFd()->descriptor()),
                  "FileDescriptor.nonBlocking = true", "FileDescriptor.notifyOnReadable = true",
                  "VmConfigSm.monitorInput", "VmConfigSm.monitorOutput", "VmConfigSm.monitorStatus",
                  "VmConfigSm.monSm"));
}

TEST_F(MonitorAttachment, NamesItsDescriptorAfterTheVmAndListensForDataOnly) {
  enable();
  const auto& fd = *vm()->monFd();
  EXPECT_EQ(fd.name(), "web1-monitor");
  EXPECT_TRUE(fd.hasNotificationActive());
  EXPECT_TRUE(fd.notifyOnReadable());
  EXPECT_FALSE(fd.notifyOnWritable());
  EXPECT_FALSE(fd.notifyOnException());
  EXPECT_NE(fcntl(fd.descriptor(), F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(MonitorAttachment, KeepsItsSocketFromOtherGuests) {
  enable();
  EXPECT_EQ(fcntl(vm()->monFd()->descriptor(), F_GETFD), FD_CLOEXEC);
}

TEST_F(MonitorAttachment, StartsWithFreshRecordsAndTheManagersClock) {
  enable();
  EXPECT_EQ(vm()->monitorInput()->counter(), 1U);  // the session's own first command
  EXPECT_EQ(vm()->monitorOutput()->counter(), 0U);
  EXPECT_EQ(vm()->monitorStatus()->state(), MonitorStatus::MonitorState::uninitialized);
  EXPECT_EQ(vm()->monSm()->timeoutClock(), clock);
  EXPECT_EQ(vm()->monSm()->monitorInput(), vm()->monitorInput());
  EXPECT_EQ(vm()->monSm()->monitorOutput(), vm()->monitorOutput());
  EXPECT_EQ(vm()->monSm()->monitorStatus(), vm()->monitorStatus());
  EXPECT_EQ(vm()->monSm()->monFd(), vm()->monFd());
}

TEST_F(MonitorAttachment, HasTheManagersClockWhateverItsMachineHas) {
  start();
  const rt::Clock::Ptr other = rt::make<rt::fakes::ManualClock>();
  const auto db1 = addVm("db1");
  vmSm()->vmConfigSmDel("db1");
  db1->enabledIs(true);
  locked([&] {
    vmSm()->vmConfigSmIs(db1, vmStatus("db1"), bridging, allIntfStatusDir, vmSm(), other);
  });
  const auto machine = AgentWorld::vm("db1");
  ASSERT_EQ(machine->clock(), other);
  EXPECT_EQ(machine->monSm()->timeoutClock(), clock);
}

TEST_F(MonitorAttachment, DestroyedWithoutASessionDoesNothing) {
  processes.refusalsAre("web1", -1);
  enable();
  forget();
  disable();
  const auto said = traces.take(8);
  EXPECT_THAT(said, testing::Contains("void Vm::VmConfigSm::destroyMonitor() for web1"));
  EXPECT_THAT(said, Not(testing::Contains("destroyMonitor deleting monSm ")));
  EXPECT_FALSE(status()->enabled());
}

TEST_F(MonitorAttachment, DestroyedClosesTheSocketAndKeepsTheInput) {
  run();
  const MonitorInput::Ptr input = vm()->monitorInput();
  const rt::FileDescriptor::Ptr fd = vm()->monFd();
  disable();
  EXPECT_THAT(traces.take(8),
              testing::IsSupersetOf({"void Vm::VmConfigSm::destroyMonitor() for web1",
                                     "destroyMonitor deleting monSm "}));
  EXPECT_TRUE(qemu().sessionHasClosed());
  EXPECT_EQ(fd->descriptor(), -1);
  EXPECT_FALSE(vm()->monFd());
  EXPECT_FALSE(vm()->monSm());
  EXPECT_FALSE(vm()->monitorOutput());
  EXPECT_FALSE(vm()->monitorStatus());
  EXPECT_EQ(vm()->monitorInput(), input);
}

TEST_F(MonitorAttachment, DestroyedDropsTheRecordsReactorsBeforeTheSession) {
  run();
  recorder->watch(vm());
  disable();
  auto done = effects.take();
  std::erase_if(done, [](const auto& line) { return !line.starts_with("VmConfigSm.mon"); });
  EXPECT_THAT(done, ElementsAre("VmConfigSm.monitorOutput", "VmConfigSm.monitorStatus",
                                "VmConfigSm.monSm", "VmConfigSm.monFd"));
}

TEST_F(MonitorAttachment, DestroyedHearsNoLateResultOrState) {
  run();
  const MonitorOutput::Ptr output = vm()->monitorOutput();
  const MonitorStatus::Ptr state = vm()->monitorStatus();
  disable();
  forget();
  output->cmdIs(MonitorCommand::queryStatus);
  output->valIs("late");
  output->counterInc(1);
  state->stateIs(MonitorStatus::MonitorState::disconnected);
  EXPECT_EQ(status()->state(), "Running");
  EXPECT_THAT(traces.take(), ElementsAre());
}

TEST_F(MonitorAttachment, GivesConsecutiveIdsToConsecutiveCommands) {
  addCard("nic00");
  addCard("nic01", "Vlan100", secondMac);
  connectVlan100();
  enable();
  connectMonitor();
  EXPECT_THAT(pendingIds(), ElementsAre(4, 5));    // after enter, status and chardev
  EXPECT_EQ(vm()->monitorInput()->counter(), 6U);  // startVm
}

TEST_F(MonitorAttachment, TracesTheCommandItSends) {
  run();
  advance(5);
  EXPECT_THAT(traces.take(8),
              testing::Contains("uint32_t Vm::VmConfigSm::sendMonitorCommand(MonitorCommand, const "
                                "MonitorCommandArgs::PtrConst&) cmd: queryStatus"));
}

TEST_F(MonitorAttachment, ReplacesTheArgumentsOfTheCommandBefore) {
  addCard();
  connectVlan100();
  enable();
  connectMonitor();
  EXPECT_EQ(vm()->monitorInput()->cmd(), MonitorCommand::startVm);
  EXPECT_EQ(vm()->monitorInput()->cmdArgs(), nullptr);
}

TEST_F(MonitorAttachmentDeathTest, CommandWithoutASessionEver) {
  EXPECT_DEATH(
      {
        NicWorld world;
        world.processes.refusalsAre("web1", -1);
        world.addCard();
        world.enable();
        world.card()->statusIs(Vnic::linkDown);
        world.connectVlan100();
      },
      "assertion failed: monitorInput\\(\\)\n");
}

TEST_F(MonitorAttachmentDeathTest, SetUpBesideAnotherSession) {
  EXPECT_DEATH(
      {
        NicWorld world;
        world.run();
        world.processes.end(1000);
        world.turn();
        world.status()->enabledIs(false);  // as only somebody else would write
        world.web1->diskImageIs("");
        world.web1->diskImageIs(world.disk.path());
      },
      "assertion failed: monSm\\(\\) == 0\n");
}

}  // namespace

}  // namespace Vm::fakes
