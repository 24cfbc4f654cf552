// QEMU's process and its VM: seeing its end, stopping it.
#include <csignal>

#include "Vm/VmAgent/fakes/AgentFixture.h"

namespace Vm {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class QemuProcess : public AgentFixture {
 protected:
  void SetUp() override {
    web1 = addRunning("web1");
    record = vmStatus("web1");
    recorder->watch(record);
    recorder->watch(vm("web1"));
  }
  VmConfig::Ptr web1;
  VmStatus::Ptr record;
};

TEST_F(QemuProcess, ThatExitsWithOneStopsItsVm) {
  const auto child = vm("web1")->qemuChildProcess();
  endProcess("web1", 1 << 8);
  EXPECT_EQ(child->exitStatus(), 1);
  EXPECT_THAT(effects.take(), ElementsAre("waitpid 1000", "VmConfigSm.qemuChildProcess",
                                          "VmStatus.state = Stopped"));
  EXPECT_THAT(said(),
              ElementsAre("8 void Vm::ChildProcessSm::handlePipeFd()",
                          "8 void Vm::VmConfigSm::handleQemuChildProcessStatus() for web1",
                          "8 handleQemuChildProcessStatus qemu-kvm exited; statusCode=exited"));
  EXPECT_EQ(vm("web1")->qemuChildProcess(), nullptr);
  EXPECT_EQ(child->references(), 1u);
}

TEST_F(QemuProcess, KilledByATermSignalStopsItsVm) {
  const auto child = vm("web1")->qemuChildProcess();
  endProcess("web1", SIGTERM);
  EXPECT_EQ(child->exitSignal(), 15);
  EXPECT_THAT(withText(said(), "statusCode"),
              ElementsAre("8 handleQemuChildProcessStatus qemu-kvm exited; statusCode=signaled"));
  EXPECT_EQ(record->state(), "Stopped");
}

TEST_F(QemuProcess, ThatEndsLeavesItsVmEnabledWithSessionAndConsole) {
  endProcess("web1");
  EXPECT_TRUE(record->enabled());
  EXPECT_EQ(record->consolePtyPath(), "pty:/dev/pts/3");
  EXPECT_NE(vm("web1")->monSm(), nullptr);
}

TEST_F(QemuProcess, WhoseStatusBecomesNoneAgainChangesNothing) {
  const auto child = vm("web1")->qemuChildProcess();
  // No step of the agent does this; a write from outside can.
  vm("web1")->qemuChildProcessDel();
  child->statusIs(ChildProcess::StatusCode::exited);
  vm("web1")->qemuChildProcessIs(child);
  forget();
  rt::attributeTextIs(*child, "status", "none");
  EXPECT_THAT(said(),
              ElementsAre("8 void Vm::VmConfigSm::handleQemuChildProcessStatus() for web1"));
  EXPECT_THAT(effects.take(), IsEmpty());
  EXPECT_EQ(vm("web1")->qemuChildProcess(), child);
}

TEST_F(QemuProcess, IsToldOfWhenItIsSetToAnotherOnly) {
  const auto child = vm("web1")->qemuChildProcess();
  vm("web1")->qemuChildProcessIs(child);
  EXPECT_THAT(effects.take(), IsEmpty());
  vm("web1")->qemuChildProcessDel();
  vm("web1")->qemuChildProcessDel();
  EXPECT_THAT(effects.take(), ElementsAre("VmConfigSm.qemuChildProcess"));
}

TEST_F(QemuProcess, IsKilledOnceByEachSwitchOffAndNotEscalated) {
  web1->enabledIs(false);
  EXPECT_THAT(withText(effects.take(), "kill"), ElementsAre("kill 1000 15"));
  advance(600);
  EXPECT_THAT(withText(effects.take(), "kill"), IsEmpty());
}

TEST_F(QemuProcess, ThatIsKilledHasNoConsoleAnyMore) {
  web1->enabledIs(false);
  EXPECT_TRUE(record->consolePtyPath().empty());
  EXPECT_THAT(said(), testing::Contains("8 killQemu kill pid:1000"));
}

TEST_F(QemuProcess, ThatIsNotThereIsNotKilledAndTheConsoleStays) {
  endProcess("web1");
  forget();
  web1->enabledIs(false);
  EXPECT_THAT(withText(effects.take(), "kill"), IsEmpty());
  EXPECT_THAT(withText(said(), "kill"), ElementsAre("8 void Vm::VmConfigSm::killQemu() for web1"));
  EXPECT_EQ(record->consolePtyPath(), "pty:/dev/pts/3");
}

TEST_F(QemuProcess, OfNumberZeroIsNotKilledForThatWouldBeAllOfUs) {
  vm("web1")->qemuChildProcessIs(rt::make<ChildProcess>("ChildProcess-0", 0));
  forget();
  web1->enabledIs(false);
  EXPECT_THAT(withText(effects.take(), "kill"), IsEmpty());
}

TEST_F(QemuProcess, MayEndWhileTheMonitorIsAwaited) {
  const auto web2 = addVm("web2");
  forget();
  processes.refusalsAre("web2", 3);
  processes.onPause = [this] {
    if (!processes.living().empty() && processes.living().back() == 1001) processes.end(1001, 256);
  };
  web2->enabledIs(true);
  EXPECT_EQ(vmStatus("web2")->state(), "Starting");
  turn();
  EXPECT_EQ(vmStatus("web2")->state(), "Stopped");
  EXPECT_TRUE(vmStatus("web2")->enabled());
}

// A fork that fails is taken for a child that has ended.
class FailedFork : public AgentFixture {
 protected:
  void SetUp() override {
    start();
    web1 = addVm("web1");
    processes.failFork = true;
    forget();
  }
  VmConfig::Ptr web1;
};

TEST_F(FailedFork, IsRecordedAsAChildAndNobodyIsKilledOrAwaited) {
  processes.refusalsAre("web1", -1);
  web1->enabledIs(true);
  EXPECT_THAT(effects.take(), ElementsAre("fork -1"));
  EXPECT_EQ(pidOf("web1"), -1);
  EXPECT_TRUE(vmStatus("web1")->enabled());
  EXPECT_EQ(vmStatus("web1")->state(), "Starting");
  EXPECT_THAT(withText(said(), "killQemu"),
              ElementsAre("8 void Vm::VmConfigSm::killQemu() for web1", "8 killQemu kill pid:-1"));
  turn();
  EXPECT_THAT(effects.take(), IsEmpty());
  EXPECT_THAT(withText(said(), "statusCode"),
              ElementsAre("8 handleQemuChildProcessStatus qemu-kvm exited; statusCode=exited"));
  EXPECT_EQ(vmStatus("web1")->state(), "Stopped");
  EXPECT_EQ(vm("web1")->qemuChildProcess(), nullptr);
}

TEST_F(FailedFork, DoesNotKeepTheVmFromBeingStartedAgain) {
  web1->enabledIs(true);
  turn();
  web1->enabledIs(false);
  web1->enabledIs(true);
  EXPECT_EQ(pidOf("web1"), 1000);
}

TEST_F(FailedFork, OfAVmThatIsSwitchedOffAtOnceKillsNobody) {
  web1->enabledIs(true);
  forget();
  web1->enabledIs(false);
  EXPECT_THAT(effects.take(), IsEmpty());
  EXPECT_THAT(said(), testing::Contains("8 killQemu kill pid:-1"));
}

}  // namespace

}  // namespace Vm
