// Two VMs with a card each, run by the agent, and the host's janitor beside it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "host/network/Janitor.h"
#include "tests/fakes/AgentWorld.h"

namespace Vm::fakes {

inline constexpr const char* firstMac = "52:54:00:12:34:01";
inline constexpr const char* secondMac = "52:54:00:12:34:02";

// "web1" has a card on Ethernet1 (index 11), "web2" one on Ethernet2 (index 12). The kernel has
// both interfaces; no VM is switched on. What the janitor deletes is in the log as "janitor del
// macvtap0".
class HostCardsWorld : public AgentWorld {
 public:
  static constexpr uint32_t firstPort = 11;
  static constexpr uint32_t secondPort = 12;

  explicit HostCardsWorld(const char* macOfSecond = secondMac)
      : web1(vmWithCard("web1", firstMac, "Ethernet1")),
        web2(vmWithCard("web2", macOfSecond, "Ethernet2")) {
    AgentWorld::start();
    interfaceIs("Ethernet1", firstPort);
    interfaceIs("Ethernet2", secondPort);
    turn();
  }

  const VmConfig::Ptr web1;
  const VmConfig::Ptr web2;
  bool kernelAnswers = true;
  int looks = 0;  // at the kernel's macvtap devices

  // Those of the fake kernel.
  std::vector<host::Tap> taps() {
    ++looks;
    if (!kernelAnswers) throw rt::Exception("no descriptor is left");
    std::vector<host::Tap> all;
    for (const std::string& name : kernel.macvtaps()) {
      const FakeKernel::Device& device = *kernel.device(name);
      all.push_back({name, rt::EthAddr(rt::String(device.mac)), device.lower, device.up()});
    }
    return all;
  }

  host::Janitor janitor{host::Janitor::Tools{
      .agent = root,
      .ourAddresses = [this] { return configuredAddresses(); },
      .deviceOf =
          [this](const rt::String& interface) {
            const auto device = deviceIntfStatusDir->intfStatusAndDeviceName(rt::IntfId(interface));
            return device ? device->ifIndex : 0;
          },
      .taps = [this] { return taps(); },
      .remove =
          [this](const rt::String& device) {
            effects.add("janitor del " + device.str());
            kernel.deviceDel(device.str());
          }}};

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
  // What was deleted since the last call, by whom.
  std::vector<std::string> deletions() {
    auto all = effects.take();
    std::erase_if(
        all, [](const std::string& effect) { return effect.find("del ") == std::string::npos; });
    return all;
  }

 private:
  VmConfig::Ptr vmWithCard(const std::string& name, const char* mac, const char* interface) {
    const auto vm = addVm(name);
    addCard(vm, "nic00", mac, interface);
    return vm;
  }
  std::set<rt::EthAddr> configuredAddresses() const {
    std::set<rt::EthAddr> addresses;
    for (const auto& [name, vm] : config->vmConfigs())
      for (const auto& [key, card] : vm->vnicConfigs()) addresses.insert(card->macAddr());
    return addresses;
  }
};

}  // namespace Vm::fakes
