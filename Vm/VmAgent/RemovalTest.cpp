// Removing a VM's configuration.
#include "Vm/VmAgent/fakes/AgentFixture.h"

namespace Vm {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Removal : public AgentFixture {
 protected:
  // A running VM with two cards, attached to interfaces of two VLANs.
  void addWithCards() {
    start();
    interfaceIs("Vlan100", 7);
    interfaceIs("Vlan200", 8);
    const auto web1 = addVm("web1");
    addCard(web1, "nic0", "52:54:00:00:00:01", "Vlan100");
    addCard(web1, "nic1", "52:54:00:00:00:02", "Vlan200");
    web1->enabledIs(true);
    converse("web1");
    forget();
  }
};

TEST_F(Removal, GoesInOrder) {
  addWithCards();
  recorder->watch(bridging);
  recorder->watch(bridging->fdbConfig(Bridging::VlanId(100)));
  recorder->watch(bridging->fdbConfig(Bridging::VlanId(200)));
  recorder->watch(vm("web1"));
  recorder->watch(vmStatus("web1"));
  recorder->watch(vmSm());
  recorder->watch(status);
  config->vmConfigDel("web1");
  EXPECT_THAT(effects.take(),
              ElementsAre("FdbConfig.configuredHost[52:54:00:00:00:01]", "Config.fdbConfig[100]",
                          "FdbConfig.configuredHost[52:54:00:00:00:02]", "Config.fdbConfig[200]",
                          "link del macvtap0", "VmConfigSm.vnic[net0]", "close /dev/tap501",
                          "link del macvtap1", "VmConfigSm.vnic[net1]", "close /dev/tap502",
                          "VmConfigSm.monitorOutput", "VmConfigSm.monitorStatus",
                          "VmConfigSm.monSm", "VmConfigSm.monFd", "kill 1000 15",
                          "VmStatus.consolePtyPath = ", "VmStatus.enabled = false",
                          "VmSm.vmConfigSm[web1]", "Status.vmStatus[web1]"));
}

TEST_F(Removal, SaysItsSteps) {
  addWithCards();
  config->vmConfigDel("web1");
  Lines lines = said();
  std::erase_if(lines, [](const auto& line) {
    return line.find("unpopulateStaticMacAddress") != std::string::npos;
  });
  EXPECT_THAT(
      lines, ElementsAre("8 void Vm::VmSm::handleVmConfig(const String&) initialized ? true",
                         "8 void Vm::VmConfigSm::unpopulateAllStaticMacs() for web1",
                         "8 void Vm::VmConfigSm::doTryDisable() for web1",
                         "7 deviceRemove ifname macvtap0", "7 deviceRemove ifname macvtap1",
                         "8 void Vm::VmConfigSm::destroyMonitor() for web1",
                         "8 destroyMonitor deleting monSm ",
                         "8 void Vm::VmConfigSm::killQemu() for web1", "8 killQemu kill pid:1000"));
}

TEST_F(Removal, ReleasesMachineRecordAndCards) {
  addWithCards();
  const auto machine = vm("web1");
  const auto record = vmStatus("web1");
  config->vmConfigDel("web1");
  EXPECT_EQ(machine->references(), 1u);
  EXPECT_TRUE(machine->vnics().empty());
  EXPECT_FALSE(status->vmStatusHas("web1"));
  EXPECT_FALSE(record->enabled());
}

TEST_F(Removal, OfAVmThatNeverRanStopsNobody) {
  start();
  addVm("web1");
  config->vmConfigDel("web1");
  EXPECT_THAT(effects.take(), IsEmpty());
  EXPECT_EQ(vm("web1"), nullptr);
  EXPECT_FALSE(status->vmStatusHas("web1"));
}

TEST_F(Removal, LeavesOtherVmsAlone) {
  addRunning("web1");
  addRunning("web2");
  config->vmConfigDel("web1");
  EXPECT_THAT(effects.take(), ElementsAre("kill 1000 15"));
  EXPECT_TRUE(vmStatus("web2")->enabled());
  EXPECT_NE(vm("web2"), nullptr);
}

TEST_F(Removal, LeavesTheProcessToBeReaped) {
  addRunning("web1");
  const auto child = vm("web1")->qemuChildProcess();
  config->vmConfigDel("web1");
  EXPECT_EQ(child->status(), ChildProcess::StatusCode::none);
  forget();
  processes.end(1000, SIGTERM);
  turn();
  EXPECT_THAT(effects.take(), ElementsAre("waitpid 1000"));
  EXPECT_EQ(child->status(), ChildProcess::StatusCode::signaled);
  EXPECT_EQ(child->references(), 1u);
}

TEST_F(Removal, LeavesAProcessThatNobodyHoldsToBeReaped) {
  addRunning("web1");
  config->vmConfigDel("web1");
  forget();
  processes.end(1000, SIGTERM);
  turn();
  EXPECT_THAT(effects.take(), ElementsAre("waitpid 1000"));
  EXPECT_THAT(said(), ElementsAre("8 void Vm::ChildProcessSm::handlePipeFd()"));
}

TEST_F(Removal, LeavesTheStateOfItsRecordAsItWas) {
  addRunning("web1");
  const auto record = vmStatus("web1");
  config->vmConfigDel("web1");
  processes.end(1000, SIGTERM);
  turn();
  EXPECT_EQ(record->state(), "Running");
}

TEST_F(Removal, OfAllVmsAtOnceRemovesEach) {
  addRunning("web1");
  addRunning("web2");
  addRunning("web3");
  config->vmConfigDelAll();
  EXPECT_THAT(effects.take(), ElementsAre("kill 1000 15", "kill 1001 15", "kill 1002 15"));
  EXPECT_TRUE(status->vmStatuses().empty());
  EXPECT_TRUE(vmSm()->vmConfigSms().empty());
}

TEST_F(Removal, AndReturnUnderTheSameNameIsANewVm) {
  const auto web1 = addRunning("web1");
  const auto machine = vm("web1");
  config->vmConfigDel("web1");
  processes.end(1000, SIGTERM);
  turn();
  config->vmConfigMount(web1);
  EXPECT_NE(vm("web1"), machine);
  EXPECT_EQ(vmStatus("web1")->state(), "Starting");
  EXPECT_EQ(pidOf("web1"), 1001);
}

TEST_F(Removal, AndReturnBeforeTheOldProcessEndedStartsASecondOne) {
  const auto web1 = addRunning("web1");
  config->vmConfigDel("web1");
  config->vmConfigMount(web1);
  EXPECT_EQ(processes.living(), (std::vector<int32_t>{1000, 1001}));
  processes.end(1000, SIGTERM);
  turn();
  EXPECT_EQ(vmStatus("web1")->state(), "Starting");
  EXPECT_EQ(pidOf("web1"), 1001);
}

void removeWithoutRecord() {
  fakes::AgentWorld world;
  world.start();
  world.addVm("web1");
  world.status->vmStatusDel("web1");
  world.config->vmConfigDel("web1");
}

TEST(RemovalDeathTest, WithoutARecordEndsTheProcess) {
  EXPECT_DEATH(removeWithoutRecord(),
               "assertion failed: !!status\\(\\)->vmStatusHas\\( name \\)\n");
}

}  // namespace

}  // namespace Vm
