// One VM's machine: what switches it, and switching off.
#include "Vm/VmAgent/VmConfigSm.h"
#include "Vm/VmAgent/fakes/AgentFixture.h"

namespace Vm {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class VmConfigSmTest : public AgentFixture {};

TEST_F(VmConfigSmTest, OfADisabledVmDoesNothing) {
  start();
  addVm("web1");
  EXPECT_TRUE(vm("web1")->initialized());
  EXPECT_THAT(effects.take(), IsEmpty());
  EXPECT_EQ(vm("web1")->qemuChildProcess(), nullptr);
  EXPECT_TRUE(vm("web1")->qemuCommandLine().empty());
}

TEST_F(VmConfigSmTest, OnlyTracesWhenEnabledEqualsTheRecords) {
  start();
  const auto web1 = addVm("web1");
  vmStatus("web1")->cmdStatusStrIs("kept");
  vmStatus("web1")->enabledIs(true);
  forget();
  web1->enabledIs(true);
  EXPECT_THAT(said(),
              ElementsAre("8 void Vm::VmConfigSm::handleEnabled() for web1",
                          "8 void Vm::VmConfigSm::doTryEnableDisable() for web1 enabled (config) ? "
                          "true enabled (status) ? true"));
  EXPECT_THAT(effects.take(), IsEmpty());
  EXPECT_EQ(vmStatus("web1")->cmdStatusStr(), "kept");
}

TEST_F(VmConfigSmTest, LeavesARunningVmAloneWhenItsDiskImageChanges) {
  const auto web1 = addRunning("web1");
  recorder->watch(vmStatus("web1"));
  web1->diskImageIs("/another");
  EXPECT_THAT(said(),
              ElementsAre("8 void Vm::VmConfigSm::handleDiskImage() for web1",
                          "8 void Vm::VmConfigSm::doTryEnableDisable() for web1 enabled (config) ? "
                          "true enabled (status) ? true"));
  EXPECT_THAT(effects.take(), IsEmpty());
}

TEST_F(VmConfigSmTest, StartsFromTheNewDiskImageTheNextTime) {
  const auto web1 = addRunning("web1");
  const fakes::DiskImage cd(fakes::DiskImage::Kind::cdRom);
  web1->diskImageIs(cd.path());
  web1->enabledIs(false);
  endProcess("web1", SIGTERM);
  web1->enabledIs(true);
  EXPECT_NE(vm("web1")->qemuCommandLine().str().find("file=" + cd.path() + ","), std::string::npos);
}

TEST_F(VmConfigSmTest, SwitchesOffInOrder) {
  const auto web1 = addRunning("web1");
  vmStatus("web1")->cmdStatusStrIs("an old outcome");
  recorder->watch(vmStatus("web1"));
  recorder->watch(vm("web1"));
  auto& qemu = processes.monitor("web1");
  web1->enabledIs(false);
  EXPECT_THAT(
      said(),
      ElementsAre("8 void Vm::VmConfigSm::handleEnabled() for web1",
                  "8 void Vm::VmConfigSm::doTryEnableDisable() for web1 enabled (config) ? "
                  "false enabled (status) ? true",
                  "8 switching web1 to disabled", "8 void Vm::VmConfigSm::doTryDisable() for web1",
                  "8 void Vm::VmConfigSm::destroyMonitor() for web1",
                  "8 destroyMonitor deleting monSm ", "8 void Vm::VmConfigSm::killQemu() for web1",
                  "8 killQemu kill pid:1000"));
  EXPECT_THAT(
      effects.take(),
      ElementsAre("VmStatus.cmdStatusStr = ", "VmConfigSm.monitorOutput",
                  "VmConfigSm.monitorStatus", "VmConfigSm.monSm", "VmConfigSm.monFd",
                  "kill 1000 15", "VmStatus.consolePtyPath = ", "VmStatus.enabled = false"));
  EXPECT_TRUE(qemu.sessionHasClosed());
}

TEST_F(VmConfigSmTest, SendsNoQmpCommandForTheCardsOfAVmThatIsSwitchedOff) {
  start();
  interfaceIs("Vlan100", 7);
  const auto web1 = addVm("web1");
  addCard(web1, "nic0", "52:54:00:00:00:01", "Vlan100");
  web1->enabledIs(true);
  converse("web1");
  auto& qemu = processes.monitor("web1");
  web1->enabledIs(false);
  EXPECT_THAT(qemu.takeTexts(), IsEmpty());
  EXPECT_TRUE(vm("web1")->vnics().empty());
}

TEST_F(VmConfigSmTest, KeepsItsStateUntilTheEndIsSeenWhenItIsSwitchedOff) {
  const auto web1 = addRunning("web1");
  web1->enabledIs(false);
  EXPECT_EQ(vmStatus("web1")->state(), "Running");
  EXPECT_NE(vm("web1")->qemuChildProcess(), nullptr);
  endProcess("web1", SIGTERM);
  EXPECT_EQ(vmStatus("web1")->state(), "Stopped");
  EXPECT_EQ(vm("web1")->qemuChildProcess(), nullptr);
}

TEST_F(VmConfigSmTest, SwitchesOffAVmWhoseProcessHasEndedWithoutKillingAnybody) {
  const auto web1 = addRunning("web1");
  endProcess("web1", 0);
  forget();
  web1->enabledIs(false);
  EXPECT_THAT(effects.take(), IsEmpty());
  EXPECT_FALSE(vmStatus("web1")->enabled());
  EXPECT_THAT(said(), testing::Contains("8 void Vm::VmConfigSm::killQemu() for web1"));
}

TEST_F(VmConfigSmTest, SwitchesOffAVmThatOnlyTheRecordSaysIsOn) {
  addVm("web1");
  status->vmStatusIs("web1")->enabledIs(true);
  start();
  EXPECT_FALSE(vmStatus("web1")->enabled());
  EXPECT_THAT(effects.take(), IsEmpty());
}

TEST_F(VmConfigSmTest, AsksForTheRemovalOfADeviceAlsoWhenItsNameIsEmpty) {
  start();
  const auto web1 = addVm("web1");
  addCard(web1, "nic0", "52:54:00:00:00:01", "Vlan100");  // an interface that is not there
  web1->enabledIs(true);
  converse("web1");
  forget();
  web1->enabledIs(false);
  EXPECT_THAT(effects.take(), ElementsAre("link del (no name)", "kill 1000 15"));
}

TEST_F(VmConfigSmTest, SwitchesNotificationsOfItselfItsReactorsAndItsSession) {
  const auto web1 = addRunning("web1");
  vm("web1")->hasNotificationActiveIs(false);
  EXPECT_FALSE(vm("web1")->hasNotificationActive());
  EXPECT_FALSE(vm("web1")->monSm()->hasNotificationActive());
  web1->enabledIs(false);
  processes.monitor("web1").close();
  processes.end(1000, SIGTERM);
  advance(60);
  EXPECT_THAT(withText(said(), "VmConfigSm"), IsEmpty());
  EXPECT_TRUE(vmStatus("web1")->enabled());
}

TEST_F(VmConfigSmTest, HearsAgainOnceItsNotificationsAreBackOn) {
  const auto web1 = addRunning("web1");
  vm("web1")->hasNotificationActiveIs(false);
  vm("web1")->hasNotificationActiveIs(true);
  EXPECT_TRUE(vm("web1")->monSm()->hasNotificationActive());
  web1->enabledIs(false);
  EXPECT_FALSE(vmStatus("web1")->enabled());
}

TEST_F(VmConfigSmTest, SwitchesNoSessionWhenItsNotificationsAreSoAlready) {
  addRunning("web1");
  vm("web1")->monSm()->hasNotificationActiveIs(false);
  vm("web1")->hasNotificationActiveIs(true);
  EXPECT_FALSE(vm("web1")->monSm()->hasNotificationActive());
}

TEST_F(VmConfigSmTest, ReleasesItsCardsAndItsSessionWhenItEnds) {
  start();
  interfaceIs("Vlan100", 7);
  const auto web1 = addVm("web1");
  addCard(web1, "nic0", "52:54:00:00:00:01", "Vlan100");
  web1->enabledIs(true);
  converse("web1");
  const auto card = vm("web1")->vnic("net0");
  const auto session = vm("web1")->monSm();
  const auto descriptor = vm("web1")->monFd();
  root->agentDel();
  EXPECT_EQ(card->references(), 1u);
  EXPECT_EQ(session->references(), 1u);
  EXPECT_GE(descriptor->references(), 1u);
}

TEST_F(VmConfigSmTest, ListsItsAttributes) {
  start();
  addVm("web1");
  EXPECT_EQ(listing(*vm("web1")),
            "[vmConfig] [vmStatus] [bridgingInputConfig] [allIntfStatusDir] [vmSm] [clock] "
            "[initialized] [monitorInterval] [vnic] [pendingVnic] [qemuCommandLine] "
            "[qemuChildProcess] [monFd] [monSm] [monitorInput] [monitorOutput] [monitorStatus]");
  EXPECT_EQ(rt::attributeText(*vm("web1"), "initialized"), "true");
  EXPECT_EQ(rt::attributeText(*vm("web1"), "monitorInterval"), "5");
  EXPECT_THROW(rt::attributeTextIs(*vm("web1"), "monitorInterval", "1"), rt::AttributeException);
}

}  // namespace

}  // namespace Vm
