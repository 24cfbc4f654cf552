// One VM with cards, for tests of its monitor and of its cards' way onto the switch.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Vm/VmAgent/fakes/AgentWorld.h"
#include "Vm/VmAgent/fakes/EffectRecorder.h"

namespace Vm::fakes {

inline constexpr const char* firstMac = "52:54:00:12:34:56";
inline constexpr const char* secondMac = "52:54:00:12:34:57";
using Texts = std::vector<std::string>;

// The world, and in it the VM "web1", configured disabled and without cards.
class NicWorld : public AgentWorld {
 public:
  const VmConfig::Ptr web1 = addVm("web1");
  const rt::Ptr<EffectRecorder> recorder = rt::make<EffectRecorder>(effects);

  // Acts as a handler does, under the activity lock.
  template <class Action>
  void locked(Action action) {
    const std::lock_guard held(rt::activityLock());
    action();
  }

  VmConfigSm::Ptr vm() const { return AgentWorld::vm("web1"); }
  VmStatus::Ptr status() const { return vmStatus("web1"); }
  QmpPeer& qemu() { return processes.monitor("web1"); }
  Vnic::Ptr card(const char* nicId = "net0") const { return vm()->vnic(nicId); }
  bool hasProcess() const { return vm()->qemuChildProcess() != nullptr; }

  void addCard(const char* key = "nic00", const char* intfName = "Vlan100",
               const char* mac = firstMac) {
    AgentWorld::addCard(web1, key, mac, intfName);
  }
  void connectVlan100() {
    locked([&] { interfaceIs("Vlan100", 7); });
  }
  void disconnectVlan100() {
    locked([&] { interfaceDel("Vlan100", 7); });
  }

  // Starts the agent and lets its machines' first wake-ups pass, which find nothing to do.
  AgentCreator::Ptr start() {
    auto agent = AgentWorld::start();
    turn();
    return agent;
  }
  // The agent starts, if it did not, and the VM is switched on. QEMU has said nothing yet.
  void enable() {
    if (!root->agent()) start();
    locked([&] { web1->enabledIs(true); });
  }
  void disable() {
    locked([&] { web1->enabledIs(false); });
  }
  // Switches the VM on and lets QEMU greet and answer all; returns what it was asked. What was
  // traced and done on the way is forgotten.
  Texts run() {
    enable();
    Texts requests = converse("web1");
    forget();
    return requests;
  }
  // QEMU answers all that it is asked, until no more is.
  Texts converse() { return converse("web1"); }
  using AgentWorld::converse;
  // QEMU greets and leaves capabilities negotiation; all else that it is asked stays unanswered.
  void connectMonitor() {
    qemu().send(greeting());
    turn();
    qemu().takeTexts();
    qemu().send(returnOf("enter"));
    turn();
  }
  // The session publishes a result.
  void publish(MonitorCommand cmd, uint32_t cmdId, const char* val = "",
               MonitorOutput::MonitorCommandStatus cmdStatus =
                   MonitorOutput::MonitorCommandStatus::success) {
    locked([&] {
      const MonitorOutput::Ptr output = vm()->monitorOutput();
      output->cmdIs(cmd);
      output->cmdIdIs(cmdId);
      output->cmdStatusIs(cmdStatus);
      output->valIs(val);
      output->counterInc(1);
    });
  }

  void forget() {
    traces.take();
    effects.take();
  }
  Texts failures() { return traces.take(1); }
  std::vector<uint32_t> pendingIds() const {
    std::vector<uint32_t> ids;
    for (const auto& [id, vnic] : vm()->pendingVnics()) ids.push_back(id);
    return ids;
  }
  // The hosts configured in the bridging configuration, as "100 52:54:00:12:34:56 Cpu 4 …".
  Texts configuredHosts() const {
    Texts hosts;
    for (const auto& [vlanId, fdb] : bridging->fdbConfigs())
      for (const auto& [mac, host] : fdb->configuredHosts())
        hosts.push_back((vlanId.text() + " " + host.text()).str());
    return hosts;
  }
  Texts vlans() const {
    Texts ids;
    for (const auto& [vlanId, fdb] : bridging->fdbConfigs()) ids.push_back(vlanId.text().str());
    return ids;
  }
};

class NicTest : public testing::Test, protected NicWorld {
 protected:
  // No test may close what is not open.
  ~NicTest() override { EXPECT_EQ(kernel.badCloses(), 0); }
};

inline const char* const attachRequests[] = {
    "{ \"execute\": \"getfd\",\"arguments\": {\"fdname\": \"fd-hostnet0\"},\"id\": \"getfd\" }\n",
    "{ \"execute\": \"netdev_add\",\"arguments\": {\"type\": \"tap\",\"fd\": \"fd-hostnet0\","
    "\"id\": \"hostnet0\"},\"id\": \"netdev\" }\n",
    "{ \"execute\": \"netdev_set\",\"arguments\": {\"nicid\": \"net0\","
    "\"netdevid\": \"hostnet0\"},\"id\": \"netdev\" }\n",
    "{ \"execute\": \"set_link\",\"arguments\": {\"name\": \"hostnet0\",\"up\": true},"
    "\"id\": \"setlink\" }\n"};
inline const char* const detachRequests[] = {
    "{ \"execute\": \"set_link\",\"arguments\": {\"name\": \"hostnet0\",\"up\": false},"
    "\"id\": \"setlink\" }\n",
    "{ \"execute\": \"closefd\",\"arguments\": {\"fdname\": \"fd-hostnet0\"},"
    "\"id\": \"closefd\" }\n",
    "{ \"execute\": \"netdev_del\",\"arguments\": {\"id\": \"hostnet0\"},\"id\": \"netdev\" }\n"};
inline const char* const capabilitiesRequest =
    "{ \"execute\": \"qmp_capabilities\",\"id\": \"enter\" }\n";
inline const char* const statusRequest = "{ \"execute\": \"query-status\",\"id\": \"status\" }\n";
inline const char* const chardevRequest =
    "{ \"execute\": \"query-chardev\",\"id\": \"chardev\" }\n";
inline const char* const contRequest = "{ \"execute\": \"cont\",\"id\": \"cont\" }\n";

}  // namespace Vm::fakes
