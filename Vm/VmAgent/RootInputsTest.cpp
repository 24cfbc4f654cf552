// Handing the agent its seven inputs a second time.
#include "Vm/VmAgent/fakes/AgentFixture.h"

namespace Vm {

namespace {

using testing::IsEmpty;

class RootInputs : public AgentFixture {};

TEST_F(RootInputs, TheSameSevenReturnTheAgentUnchanged) {
  addVm("web1");
  const auto agent = start();
  const auto set = agent->vmSm();
  recorder->watch(root);
  recorder->watch(agent);
  forget();
  EXPECT_EQ(start(), agent);
  EXPECT_EQ(agent->vmSm(), set);
  EXPECT_THAT(said(), IsEmpty());
  EXPECT_THAT(effects.take(), IsEmpty());
}

TEST_F(RootInputs, TheAgentsOwnInputsMayBeHandedBackWithAnotherOne) {
  const auto agent = start().get();
  const auto otherStatus = rt::make<Status>();
  // References into the agent that ends meanwhile.
  const auto made = root->agentIs(agent->config(), otherStatus, agent->allIntfStatusDir(),
                                  agent->allIntfStatusLocalDir(), agent->deviceIntfStatusDir(),
                                  agent->kniStatus(), agent->bridgingInputConfig());
  EXPECT_EQ(made->config(), config);
  EXPECT_EQ(made->status(), otherStatus);
  EXPECT_EQ(made->bridgingInputConfig(), bridging);
}

// One of the seven is missing.
class NoInput : public AgentFixture, public testing::WithParamInterface<int> {
 protected:
  static constexpr const char* names[] = {"config",
                                          "status",
                                          "allIntfStatusDir",
                                          "allIntfStatusLocalDir",
                                          "deviceIntfStatusDir",
                                          "kniStatus",
                                          "bridgingInputConfig"};
};

TEST_P(NoInput, IsRefusedByItsNameAndTheAgentStaysAsItWas) {
  const auto agent = start();
  const int none = GetParam();
  const std::string refusal = refusalOf([&] {
    root->agentIs(none == 0 ? nullptr : config, none == 1 ? nullptr : status,
                  none == 2 ? nullptr : allIntfStatusDir,
                  none == 3 ? nullptr : allIntfStatusLocalDir,
                  none == 4 ? nullptr : deviceIntfStatusDir, none == 5 ? nullptr : kniStatus,
                  none == 6 ? nullptr : bridging);
  });
  EXPECT_EQ(refusal,
            std::string("Vm::AgentCreator::") + names[none] + ": a null pointer is not allowed");
  EXPECT_EQ(root->agent(), agent);
}

INSTANTIATE_TEST_SUITE_P(Each, NoInput, testing::Range(0, 7));

// One of the seven is another one.
class OtherInput : public AgentFixture, public testing::WithParamInterface<int> {
 protected:
  AgentCreator::Ptr startWithAnother() {
    const int other = GetParam();
    return root->agentIs(
        other == 0 ? rt::make<Config>() : config, other == 1 ? rt::make<Status>() : status,
        other == 2 ? rt::make<Interface::AllIntfStatusDir>() : allIntfStatusDir,
        other == 3 ? rt::make<Interface::AllIntfStatusLocalDir>() : allIntfStatusLocalDir,
        other == 4 ? rt::make<Interface::DeviceIntfStatusDir>() : deviceIntfStatusDir,
        other == 5 ? rt::make<KernelNetInfo::Status>() : kniStatus,
        other == 6 ? rt::make<Bridging::Input::Config>() : bridging);
  }
};

TEST_P(OtherInput, ReplacesTheAgentAndTheOldSetDiesFirst) {
  addVm("web1");
  auto old = start();
  auto oldSet = old->vmSm();
  auto oldVm = vm("web1");
  old = nullptr;
  oldSet = nullptr;
  forget();
  const auto made = startWithAnother();
  EXPECT_EQ(root->agent(), made);
  EXPECT_TRUE(made->initialized());
  const auto lines = said();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[0], "8 void Vm::VmSm::handleCleanup() initialized ? true");
  EXPECT_EQ(lines[1], "8 void Vm::AgentCreator::handleInitialized() initialized ? false");
  EXPECT_EQ(withText(lines, "handleCleanup").size(), 1u);
  // Nothing of the old agent holds its machine, and that has no set any more.
  EXPECT_EQ(oldVm->references(), 1u);
  EXPECT_EQ(oldVm->vmSm(), nullptr);
}

TEST_P(OtherInput, DetachesTheOldAgentWhoeverHoldsIt) {
  const auto old = start();
  const auto made = startWithAnother();
  EXPECT_NE(made, old);
  EXPECT_EQ(old->parent(), nullptr);
  EXPECT_EQ(made->parent(), root.get());
  EXPECT_EQ(old->references(), 1u);
}

TEST_P(OtherInput, StopsNoGuest) {
  addRunning("web1");
  startWithAnother();
  EXPECT_THAT(withText(effects.take(), "kill"), IsEmpty());
  // With other records, or with an agent that begins anew, a second one may be started.
  EXPECT_EQ(processes.living().front(), 1000);
}

INSTANTIATE_TEST_SUITE_P(EachOfSeven, OtherInput, testing::Range(0, 7));

TEST_F(RootInputs, AReplacedAgentHearsOfItsInputsNoMore) {
  start();
  const auto otherConfig = rt::make<Config>();
  root->agentIs(otherConfig, status, allIntfStatusDir, allIntfStatusLocalDir, deviceIntfStatusDir,
                kniStatus, bridging);
  forget();
  addVm("of the old configuration");
  EXPECT_THAT(said(), IsEmpty());
  otherConfig->vmConfigIs("web1");
  EXPECT_TRUE(status->vmStatusHas("web1"));
}

}  // namespace

}  // namespace Vm
