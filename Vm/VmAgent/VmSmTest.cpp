// The VM set: a record and a machine for each configured VM.
#include "Vm/VmAgent/VmSm.h"
#include "Vm/VmAgent/fakes/AgentFixture.h"

namespace Vm {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A full pass visits each name; creation is between the visits.
constexpr const char* visit = "8 void Vm::VmSm::handleVmConfig(const String&) initialized ? true";

class VmSmTest : public AgentFixture {
 protected:
  static Lines created(const std::string& name) {
    return {visit,
            "8 handleVmConfig creating a new VmStatus for " + name,
            "8 handleVmConfig creating a new VmConfig for " + name,
            "8 void Vm::VmConfigSm::handleInitialized() initialized ? false",
            "8 void Vm::VmConfigSm::handleEnabled() for " + name,
            "8 void Vm::VmConfigSm::doTryEnableDisable() for " + name +
                " enabled (config) ? false enabled (status) ? false"};
  }
};

TEST_F(VmSmTest, StartsWithThreeConfiguredVmsAndOneStaleRecord) {
  for (const char* name : {"a", "b", "c"}) addVm(name);
  status->vmStatusIs("b")->stateIs("Stopped");
  const auto kept = vmStatus("b");
  status->vmStatusIs("stale");
  recorder->watch(status);
  start();

  EXPECT_EQ(vmSm()->vmConfigSms().size(), 3u);
  EXPECT_EQ(status->vmStatuses().size(), 3u);
  EXPECT_EQ(vmStatus("b"), kept);
  EXPECT_EQ(kept->state(), "Stopped");
  EXPECT_THAT(effects.take(),
              ElementsAre("Status.vmStatus[a]", "Status.vmStatus[c]", "Status.vmStatus[stale]"));
  Lines expected{"8 void Vm::AgentCreator::handleInitialized() initialized ? false",
                 "8 void Vm::VmSm::handleInitialized() initialized ? false",
                 "8 void Vm::VmSm::handleVmConfig() initialized ? true"};
  for (const char* name : {"a", "b", "c"})
    for (const auto& line : created(name))
      if (line != "8 handleVmConfig creating a new VmStatus for b") expected.push_back(line);
  for (int visits = 0; visits < 4; ++visits) expected.emplace_back(visit);
  EXPECT_EQ(said(), expected);
}

TEST_F(VmSmTest, RemovesTheFirstAndTheLastOfTwoStaleRecords) {
  status->vmStatusIs("a");
  addVm("b");
  status->vmStatusIs("z");
  start();
  EXPECT_EQ(status->vmStatuses().size(), 1u);
  EXPECT_TRUE(status->vmStatusHas("b"));
}

TEST_F(VmSmTest, CreatesRecordAndMachineOfAVmThatIsAddedLater) {
  start();
  forget();
  const auto web1 = addVm("web1");
  EXPECT_EQ(said(), created("web1"));
  ASSERT_NE(vm("web1"), nullptr);
  EXPECT_EQ(vm("web1")->vmConfig(), web1);
  EXPECT_EQ(vm("web1")->vmStatus(), vmStatus("web1"));
  EXPECT_EQ(vm("web1")->bridgingInputConfig(), bridging);
  EXPECT_EQ(vm("web1")->allIntfStatusDir(), allIntfStatusDir);
  EXPECT_EQ(vm("web1")->vmSm(), vmSm());
  EXPECT_EQ(vm("web1")->clock(), manager.clock());
}

TEST_F(VmSmTest, GivesADisabledVmARecordThatIsDisabledWithoutAState) {
  start();
  addVm("web1");
  const auto record = vmStatus("web1");
  EXPECT_EQ(record->name(), "web1");
  EXPECT_FALSE(record->enabled());
  EXPECT_TRUE(record->state().empty());
  EXPECT_TRUE(record->consolePtyPath().empty());
  EXPECT_TRUE(record->cmdStatusStr().empty());
}

TEST_F(VmSmTest, KeepsARecordThatIsThereWhenItsVmIsAdded) {
  start();
  const auto record = status->vmStatusIs("web1");
  forget();
  addVm("web1");
  EXPECT_EQ(vmStatus("web1"), record);
  EXPECT_THAT(withText(said(), "new VmStatus"), IsEmpty());
}

TEST_F(VmSmTest, RecreatesNothingWhenAConfigurationChanges) {
  const auto web1 = addVm("web1");
  start();
  const auto machine = vm("web1");
  const auto record = vmStatus("web1");
  forget();
  web1->memoryIs(512);
  web1->vncPortIs(5901);
  addCard(web1, "nic0", "52:54:00:00:00:01", "Vlan100");
  EXPECT_THAT(said(), IsEmpty());
  web1->diskImageIs("/elsewhere");
  EXPECT_EQ(vm("web1"), machine);
  EXPECT_EQ(vmStatus("web1"), record);
}

TEST_F(VmSmTest, TakesTheMachinesClockFromTheActivityManager) {
  addVm("web1");
  const auto ownClock = rt::make<rt::fakes::ManualClock>();
  const auto set =
      rt::make<VmSm>(config, status, deviceIntfStatusDir, bridging, allIntfStatusDir, ownClock);
  EXPECT_EQ(set->clock(), ownClock);
  EXPECT_EQ(set->vmConfigSm("web1")->clock(), manager.clock());
}

TEST_F(VmSmTest, LetsOneVmsFailureDisturbNoOther) {
  addVm("a")->enabledIs(true);
  const auto broken = addVm("b");
  broken->diskImageIs("/nowhere/at/all");
  broken->enabledIs(true);
  addVm("c")->enabledIs(true);
  start();
  EXPECT_TRUE(vmStatus("a")->enabled());
  EXPECT_FALSE(vmStatus("b")->enabled());
  EXPECT_TRUE(vmStatus("c")->enabled());
  EXPECT_EQ(processes.living().size(), 2u);
}

TEST_F(VmSmTest, ReturnsAMachineThatIsThereOfTheSameInputs) {
  const auto web1 = addVm("web1");
  start();
  EXPECT_EQ(vmSm()->vmConfigSmIs(web1, vmStatus("web1"), bridging, allIntfStatusDir, vmSm(), clock),
            vm("web1"));
}

TEST_F(VmSmTest, RefusesAMachineOfOtherInputsAndNamesTheFirst) {
  const auto web1 = addVm("web1");
  start();
  const auto machine = vm("web1");
  const auto otherSet = rt::make<VmSm>(rt::make<Config>(), rt::make<Status>(), deviceIntfStatusDir,
                                       bridging, allIntfStatusDir, clock);
  // With others from the input `first` on.
  const auto refused = [&](int first) {
    return refusalOf([&] {
      vmSm()->vmConfigSmIs(first <= 0 ? rt::make<VmConfig>("web1") : web1,
                           first <= 1 ? rt::make<VmStatus>("web1") : vmStatus("web1"),
                           first <= 2 ? rt::make<Bridging::Input::Config>() : bridging,
                           first <= 3 ? rt::make<Interface::AllIntfStatusDir>() : allIntfStatusDir,
                           first <= 4 ? otherSet : vmSm(),
                           first <= 5 ? rt::make<rt::fakes::ManualClock>() : clock);
    });
  };
  const std::string why = ": it exists already with a different value";
  EXPECT_EQ(refused(0), "Vm::VmConfigSm::vmConfig" + why);
  EXPECT_EQ(refused(1), "Vm::VmConfigSm::vmStatus" + why);
  EXPECT_EQ(refused(2), "Vm::VmConfigSm::bridgingInputConfig" + why);
  EXPECT_EQ(refused(3), "Vm::VmConfigSm::allIntfStatusDir" + why);
  EXPECT_EQ(refused(4), "Vm::VmConfigSm::vmSm" + why);
  EXPECT_EQ(refused(5), "Vm::VmConfigSm::clock" + why);
  EXPECT_EQ(refused(6), "nothing");
  EXPECT_EQ(vm("web1"), machine);
}

TEST_F(VmSmTest, DeletesMachinesByNameOrAll) {
  for (const char* name : {"a", "b", "c"}) addVm(name);
  start();
  recorder->watch(vmSm());
  const auto b = vm("b");
  EXPECT_EQ(vmSm()->vmConfigSmDel("b"), b);
  EXPECT_EQ(vmSm()->vmConfigSmDel("b"), nullptr);
  vmSm()->vmConfigSmDelAll();
  EXPECT_TRUE(vmSm()->vmConfigSms().empty());
  EXPECT_THAT(effects.take(),
              ElementsAre("VmSm.vmConfigSm[b]", "VmSm.vmConfigSm[a]", "VmSm.vmConfigSm[c]"));
}

TEST_F(VmSmTest, DropsChangesWhileItsNotificationsAreOff) {
  const auto a = addVm("a");
  start();
  vmSm()->hasNotificationActiveIs(false);
  forget();
  addVm("b");
  a->enabledIs(true);
  interfaceIs("Vlan100", 7);
  advance(11);
  EXPECT_THAT(said(), IsEmpty());
  EXPECT_FALSE(status->vmStatusHas("b"));
  vmSm()->hasNotificationActiveIs(true);
  addVm("c");
  EXPECT_TRUE(status->vmStatusHas("c"));
  EXPECT_FALSE(status->vmStatusHas("b"));  // what was dropped is not told later
}

TEST_F(VmSmTest, SwitchesNotificationsOfEveryMachineAndOfItsSession) {
  addRunning("a");
  addVm("b");
  vmSm()->hasNotificationActiveIs(false);
  EXPECT_FALSE(vm("a")->hasNotificationActive());
  EXPECT_FALSE(vm("a")->monSm()->hasNotificationActive());
  EXPECT_FALSE(vm("b")->hasNotificationActive());
  vmSm()->hasNotificationActiveIs(true);
  EXPECT_TRUE(vm("a")->hasNotificationActive());
  EXPECT_TRUE(vm("a")->monSm()->hasNotificationActive());
  EXPECT_TRUE(vm("b")->hasNotificationActive());
}

TEST_F(VmSmTest, SwitchesNothingWhenItsNotificationsAreSoAlready) {
  addVm("a");
  start();
  vm("a")->hasNotificationActiveIs(false);
  vmSm()->hasNotificationActiveIs(true);
  EXPECT_FALSE(vm("a")->hasNotificationActive());
}

TEST_F(VmSmTest, EndsWithACleanupTraceAndNothingElse) {
  addRunning("web1");
  root->agentDel();
  EXPECT_THAT(said(), ElementsAre("8 void Vm::VmSm::handleCleanup() initialized ? true"));
}

TEST_F(VmSmTest, LeavesAMachineThatSomebodyHoldsWithoutASet) {
  addVm("web1");
  start();
  const auto held = vm("web1");
  root->agentDel();
  EXPECT_EQ(held->vmSm(), nullptr);
}

TEST_F(VmSmTest, LeavesARemovedMachineThatSomebodyHoldsWithoutASet) {
  addVm("web1");
  start();
  const auto held = vm("web1");
  config->vmConfigDel("web1");
  root->agentDel();
  EXPECT_EQ(held->vmSm(), nullptr);
}

TEST_F(VmSmTest, IsNotKeptAliveByItsMachines) {
  addVm("web1");
  start();
  const auto set = vmSm();
  const auto held = vm("web1");
  root->agentDel();
  EXPECT_EQ(set->references(), 1u);
}

TEST_F(VmSmTest, ListsItsAttributes) {
  start();
  EXPECT_EQ(listing(*vmSm()),
            "[config] [status] [kisd] [bridgingInputConfig] [allIntfStatusDir] [clock] "
            "[vmConfigSm] [initialized] [monitorInterval]");
  EXPECT_EQ(rt::attributeText(*vmSm(), "monitorInterval"), "5");
  EXPECT_THROW(rt::attributeTextIs(*vmSm(), "monitorInterval", "1"), rt::AttributeException);
}

}  // namespace

}  // namespace Vm
