// Two VMs with a card each, run by the agent, and beside it what the host has for cards.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "Vm/VmAgent/fakes/AgentWorld.h"
#include "host/network/CardHealer.h"

namespace Vm::fakes {

inline constexpr const char* firstMac = "52:54:00:12:34:01";
inline constexpr const char* secondMac = "52:54:00:12:34:02";

// Tells of a VM's changes as its keeper does.
class CardTeller final : public rt::StateMachineOf<CardTeller> {
 public:
  CardTeller(rt::String vm, const rt::Ptr<const rt::Entity>& machine, host::VmCards& cards)
      : vm_(std::move(vm)), cards_(cards), machine_(*this) {
    machine_.notifierIs(machine);
  }

  static constexpr std::string_view typeName = "Vm::fakes::CardTeller";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &CardTeller::initialized>>;

 private:
  void handleMachine(const rt::Entity& /*machine*/, const rt::Change& /*change*/) {
    cards_.changed(vm_);
  }

  const rt::String vm_;
  host::VmCards& cards_;
  rt::AnyReactor<CardTeller, &CardTeller::handleMachine> machine_;
};

// "web1" has a card on Ethernet1 (index 11), "web2" one on Ethernet2 (index 12). The kernel has
// both interfaces; no VM is switched on. What the janitor deletes is in the log as "janitor del
// macvtap0".
class HostCardsWorld : public AgentWorld {
 public:
  static constexpr uint32_t firstPort = 11;
  static constexpr uint32_t secondPort = 12;

  explicit HostCardsWorld(const char* macOfSecond = secondMac,
                          const char* interfaceOfSecond = "Ethernet2");

  const VmConfig::Ptr web1;
  const VmConfig::Ptr web2;
  bool kernelAnswers = true;
  bool deletes = true;  // the kernel, what the janitor asks it to
  bool nodesAreKnown = true;
  int looks = 0;                                        // at the kernel's macvtap devices
  int looksAnswered = std::numeric_limits<int>::max();  // the kernel answers no more of them
  // The kernel's devices have their indexes for nodes.
  std::optional<host::Nodes> nodesOfOthers{std::in_place};

  host::TraceLog traceLog{0, {}};
  const host::HostStatus::Ptr hostStatus = rt::make<host::HostStatus>();
  host::Problems problems{hostStatus,
                          [this] { return static_cast<uint64_t>(clock->now().value()); }};
  host::Janitor janitor;
  const host::CardHealer::Ptr healer;

  Vnic::Ptr card(const std::string& vmName) const { return vm(vmName)->vnic("net0"); }
  // The address of the kernel's device of that name; empty when there is none.
  std::string macOf(const std::string& device) const {
    const auto* const found = kernel.device(device);
    return found ? found->mac : "";
  }

  // Acts as a handler does, under the activity lock.
  template <class Action>
  void locked(Action action) {
    const std::lock_guard held(rt::activityLock());
    action();
  }
  // Switches the VM on, and QEMU answers all.
  void run(const VmConfig::Ptr& vm) {
    locked([&] { vm->enabledIs(true); });
    converse(vm->name().str());
  }
  void switchOff(const VmConfig::Ptr& vm) {
    locked([&] {
      janitor.switchingOff(vm->name());
      vm->enabledIs(false);
      janitor.switchedOff(vm->name());
    });
  }
  // An operator has the VM's card on another interface.
  void configure(const VmConfig::Ptr& vm, const char* interface);
  // Time passes, QEMUs answer, and the loop makes its passes, one a `step`.
  void pass(double seconds, double step = 0.1);
  // What the VM's QEMU was asked since the last call, its polls left out.
  std::vector<std::string> asked(const std::string& vmName);
  // The VM's problem; empty when there is none.
  std::string problem(const char* vmName) const;
  // Whether the VM's card is on its interface: by a device of its own that is up, whose descriptor
  // the agent has.
  bool isAttached(const std::string& vmName) const;
  // What was deleted since the last call, by whom.
  std::vector<std::string> deletions();

 private:
  VmConfig::Ptr vmWithCard(const std::string& name, const char* mac, const char* interface);
  host::Janitor::Tools janitorsTools();
  std::vector<host::Tap> taps();
  std::set<rt::EthAddr> configuredAddresses() const;
  rt::String interfaceOf(const rt::String& vm, rt::EthAddr address) const;
  void answer();

  std::vector<rt::Ptr<CardTeller>> tellers_;
  std::map<std::string, std::vector<std::string>> asked_;
};

}  // namespace Vm::fakes
