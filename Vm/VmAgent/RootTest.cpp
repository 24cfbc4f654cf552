// The agent's root and creator: start and end of the agent.
#include "Vm/VmAgent/VmRoot.h"
#include "Vm/VmAgent/fakes/AgentFixture.h"
#include "runtime/entity/TypeRegistry.h"

namespace Vm {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class RootTest : public AgentFixture {};

TEST_F(RootTest, IsMadeWithItsNameAndNotificationsAndWithoutAnAgent) {
  const Root::Ptr made = rootFactory("agents/vm");
  EXPECT_EQ(made->name(), "agents/vm");
  EXPECT_TRUE(made->hasNotificationActive());
  EXPECT_EQ(made->agent(), nullptr);
}

TEST_F(RootTest, AttachesItsAgentWithNotificationsOn) {
  const auto agent = start();
  EXPECT_EQ(root->agent(), agent);
  EXPECT_EQ(agent->parent(), root.get());
  EXPECT_TRUE(agent->hasNotificationActive());
}

TEST_F(RootTest, TellsOfItsAgentComingAndGoing) {
  recorder->watch(root);
  start();
  EXPECT_THAT(effects.take(), ElementsAre("Root.agent"));
  root->agentDel();
  EXPECT_THAT(effects.take(), ElementsAre("Root.agent"));
}

TEST_F(RootTest, DeletesNoAgentWhereThereIsNone) {
  recorder->watch(root);
  root->agentDel();
  EXPECT_THAT(effects.take(), IsEmpty());
}

TEST_F(RootTest, DetachesADeletedAgentThatIsHeld) {
  const auto agent = start();
  root->agentDel();
  EXPECT_EQ(agent->parent(), nullptr);
  EXPECT_EQ(root->firstChild(), nullptr);
  EXPECT_EQ(agent->references(), 1u);
}

TEST_F(RootTest, EndsTheAgentWithItself) {
  auto own = rootFactory("own");
  own->agentIs(config, status, allIntfStatusDir, allIntfStatusLocalDir, deviceIntfStatusDir,
               kniStatus, bridging);
  forget();
  own = nullptr;
  EXPECT_THAT(said(), ElementsAre("8 void Vm::VmSm::handleCleanup() initialized ? true"));
}

class Creator : public AgentFixture {};

TEST_F(Creator, InitialisesAtItsConstruction) {
  const auto agent = start();
  EXPECT_TRUE(agent->initialized());
  EXPECT_THAT(said(),
              ElementsAre("8 void Vm::AgentCreator::handleInitialized() initialized ? false",
                          "8 void Vm::VmSm::handleInitialized() initialized ? false",
                          "8 void Vm::VmSm::handleVmConfig() initialized ? true"));
}

TEST_F(Creator, DoesNothingWhenInitialisedASecondTime) {
  const auto agent = start();
  const auto set = agent->vmSm();
  const auto managers = agent->intfStatusManagerRoot();
  recorder->watch(agent);
  forget();
  agent->handleInitialized();
  EXPECT_THAT(said(),
              ElementsAre("8 void Vm::AgentCreator::handleInitialized() initialized ? true"));
  EXPECT_THAT(effects.take(), IsEmpty());
  EXPECT_EQ(agent->vmSm(), set);
  EXPECT_EQ(agent->intfStatusManagerRoot(), managers);
}

TEST_F(Creator, HoldsWhatItWasGiven) {
  const auto agent = start();
  EXPECT_EQ(agent->config(), config);
  EXPECT_EQ(agent->status(), status);
  EXPECT_EQ(agent->allIntfStatusDir(), allIntfStatusDir);
  EXPECT_EQ(agent->allIntfStatusLocalDir(), allIntfStatusLocalDir);
  EXPECT_EQ(agent->deviceIntfStatusDir(), deviceIntfStatusDir);
  EXPECT_EQ(agent->kniStatus(), kniStatus);
  EXPECT_EQ(agent->bridgingInputConfig(), bridging);
}

TEST_F(Creator, MakesOneInterfaceStatusManagerForTheDefaultNamespaceWithoutAFilter) {
  const auto managers = start()->intfStatusManagerRoot();
  EXPECT_EQ(managers->allIntfStatusDir(), allIntfStatusDir);
  EXPECT_EQ(managers->allIntfStatusLocalDir(), allIntfStatusLocalDir);
  EXPECT_FALSE(managers->filterByNetNs());
  EXPECT_TRUE(managers->hasNotificationActive());
  ASSERT_EQ(managers->intfStatusManagers().size(), 1u);
  const auto ours = managers->intfStatusManager(rt::NamespaceName::defaultNamespace());
  EXPECT_EQ(ours->deviceIntfStatusDir(), deviceIntfStatusDir);
  EXPECT_EQ(ours->kniStatus(), kniStatus);
}

TEST_F(Creator, FillsTheDeviceStatusBeforeTheVmSetStarts) {
  interfaceIs("Vlan100", 7);
  addVm("web1");
  start();
  // The set heard of no interface: it was there before.
  EXPECT_TRUE(deviceIntfStatusDir->intfStatusAndDeviceNameHas(rt::IntfId("Vlan100")));
  EXPECT_THAT(withText(said(), "handleIntfStatusAndDeviceName"), IsEmpty());
}

TEST_F(Creator, KeepsAManagerRootThatWasMadeOfTheSame) {
  const auto agent = start();
  const auto managers = agent->intfStatusManagerRoot();
  EXPECT_EQ(agent->intfStatusManagerRootIs(allIntfStatusDir, allIntfStatusLocalDir, false),
            managers);
}

TEST_F(Creator, ReplacesAManagerRootThatWasMadeOfOthers) {
  const auto agent = start();
  const auto managers = agent->intfStatusManagerRoot();
  const auto other = agent->intfStatusManagerRootIs(allIntfStatusDir, allIntfStatusLocalDir, true);
  EXPECT_NE(other, managers);
  EXPECT_EQ(agent->intfStatusManagerRoot(), other);
  EXPECT_TRUE(other->filterByNetNs());
  EXPECT_EQ(managers->references(), 1u);
}

TEST_F(Creator, GivesTheVmSetItsInputsTheClockAndNotifications) {
  const auto set = start()->vmSm();
  EXPECT_EQ(set->config(), config);
  EXPECT_EQ(set->status(), status);
  EXPECT_EQ(set->kisd(), deviceIntfStatusDir);
  EXPECT_EQ(set->bridgingInputConfig(), bridging);
  EXPECT_EQ(set->allIntfStatusDir(), allIntfStatusDir);
  EXPECT_EQ(set->clock(), manager.clock());
  EXPECT_TRUE(set->hasNotificationActive());
}

TEST_F(Creator, ReturnsTheVmSetWhenAskedForTheSameAgain) {
  const auto agent = start();
  EXPECT_EQ(agent->vmSmIs(config, status, deviceIntfStatusDir, bridging, allIntfStatusDir, clock),
            agent->vmSm());
}

TEST_F(Creator, RefusesAVmSetOfOtherInputsAndNamesTheFirst) {
  const auto agent = start();
  // With others from the input `first` on.
  const auto refused = [&](int first) {
    return refusalOf([&] {
      agent->vmSmIs(first <= 0 ? rt::make<Config>() : config,
                    first <= 1 ? rt::make<Status>() : status,
                    first <= 2 ? rt::make<Interface::DeviceIntfStatusDir>() : deviceIntfStatusDir,
                    first <= 3 ? rt::make<Bridging::Input::Config>() : bridging,
                    first <= 4 ? rt::make<Interface::AllIntfStatusDir>() : allIntfStatusDir,
                    first <= 5 ? rt::make<rt::fakes::ManualClock>() : clock);
    });
  };
  const std::string why = ": it exists already with a different value";
  EXPECT_EQ(refused(0), "Vm::VmSm::config" + why);
  EXPECT_EQ(refused(1), "Vm::VmSm::status" + why);
  EXPECT_EQ(refused(2), "Vm::VmSm::kisd" + why);
  EXPECT_EQ(refused(3), "Vm::VmSm::bridgingInputConfig" + why);
  EXPECT_EQ(refused(4), "Vm::VmSm::allIntfStatusDir" + why);
  EXPECT_EQ(refused(5), "Vm::VmSm::clock" + why);
  EXPECT_EQ(refused(6), "nothing");
}

TEST_F(Creator, DeletesTheVmSetWithItsNotificationsOff) {
  const auto agent = start();
  const auto set = agent->vmSm();
  agent->vmSmDel();
  EXPECT_EQ(agent->vmSm(), nullptr);
  EXPECT_FALSE(set->hasNotificationActive());
  EXPECT_EQ(set->references(), 1u);
  agent->vmSmDel();  // a second time: nothing
}

// At the set's end, says whether the kernel's devices are still watched.
class EndObserver final : public rt::TraceSink {
 public:
  explicit EndObserver(KernelNetInfo::Status::Ptr kernel) : kernel_(std::move(kernel)) {}
  void write(const rt::TraceRecord& record) override {
    if (record.message.starts_with("void Vm::VmSm::handleCleanup()"))
      seen.push_back(kernel_->hasReactors() ? "manager is there" : "manager is gone");
  }
  std::vector<std::string> seen;

 private:
  const KernelNetInfo::Status::Ptr kernel_;
};

TEST_F(Creator, EndsTheInterfaceStatusManagerBeforeTheVmSet) {
  start();
  ASSERT_TRUE(kniStatus->hasReactors());
  EndObserver observer(kniStatus);
  rt::traceSinkIs(&observer);
  root->agentDel();
  rt::traceSinkIs(&traces);
  EXPECT_THAT(observer.seen, ElementsAre("manager is gone"));
}

TEST_F(Creator, EndsWithoutKillingAGuestAndClosesItsMonitor) {
  addRunning("web1");
  recorder->watch(vmStatus("web1"));
  auto& qemu = processes.monitor("web1");
  root->agentDel();
  EXPECT_THAT(effects.take(), IsEmpty());
  EXPECT_EQ(processes.living().size(), 1u);
  EXPECT_THAT(qemu.takeTexts(), IsEmpty());
  EXPECT_TRUE(qemu.sessionHasClosed());
  EXPECT_TRUE(vmStatus("web1")->enabled());
  EXPECT_EQ(vmStatus("web1")->state(), "Running");
}

TEST_F(Creator, LeavesStaticMacEntriesAndDevicesAtItsEnd) {
  start();
  interfaceIs("Vlan100", 7);
  const auto web1 = addVm("web1");
  addCard(web1, "nic0", "52:54:00:00:00:01", "Vlan100");
  web1->enabledIs(true);
  converse("web1");
  ASSERT_TRUE(bridging->fdbConfigHas(Bridging::VlanId(100)));
  forget();
  root->agentDel();
  EXPECT_TRUE(bridging->fdbConfigHas(Bridging::VlanId(100)));
  EXPECT_THAT(kernel.macvtaps(), ElementsAre("macvtap0"));
  EXPECT_THAT(effects.take(), ElementsAre("close /dev/tap501"));  // our own descriptor of it
}

TEST_F(Creator, LeavesAVmAloneThatItsPredecessorLeftEnabled) {
  addRunning("web1");
  root->agentDel();
  forget();
  start();
  EXPECT_THAT(effects.take(), IsEmpty());
  EXPECT_THAT(withText(said(), "doTryEnable"),
              ElementsAre("8 void Vm::VmConfigSm::doTryEnableDisable() for web1 enabled (config) ? "
                          "true enabled (status) ? true"));
}

TEST_F(Creator, HearsNothingOnceItEnded) {
  start();
  root->agentDel();
  forget();
  addVm("web1");
  interfaceIs("Vlan100", 7);
  advance(20);
  EXPECT_THAT(said(), IsEmpty());
  EXPECT_FALSE(status->vmStatusHas("web1"));
}

TEST(VmAgentTypes, AreRegisteredWhenTheModuleIsLoaded) {
  rootFactory("linked");  // or the linker leaves them out
  for (const char* name :
       {"Vm::Vnic", "Vm::ChildProcess", "Vm::ChildProcessSm", "Vm::VmConfigSm", "Vm::VmSm",
        "Vm::AgentCreator", "Vm::Root", "Vm::MonitorSm", "Vm::QmpParserSm"}) {
    const auto* const type = rt::typeRegistry().type(name);
    ASSERT_NE(type, nullptr) << name;
    EXPECT_EQ(type->name, name);
  }
}

TEST_F(RootTest, ListsItsAttributes) { EXPECT_EQ(listing(*root), "[name] [agent]"); }

TEST_F(Creator, ListsItsAttributes) {
  EXPECT_EQ(listing(*start()),
            "[config] [status] [allIntfStatusDir] [allIntfStatusLocalDir] [deviceIntfStatusDir] "
            "[kniStatus] [bridgingInputConfig] [initialized] [intfStatusManagerRoot] [vmSm]");
}

}  // namespace

}  // namespace Vm
