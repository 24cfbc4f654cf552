#include "host/fakes/HostCardsWorld.h"

#include <utility>

namespace Vm::fakes {

HostCardsWorld::HostCardsWorld(const char* macOfSecond, const char* interfaceOfSecond)
    : web1(vmWithCard("web1", firstMac, "Ethernet1")),
      web2(vmWithCard("web2", macOfSecond, interfaceOfSecond)),
      janitor(janitorsTools()),
      healer(rt::make<host::CardHealer>(
          host::CardHealer::Tools{
              .agent = root,
              .present = deviceIntfStatusDir,
              .interfaces = rt::make<host::InterfaceNames>(
                  allIntfStatusLocalDir, hostStatus, deviceIntfStatusDir,
                  [this](const rt::String& id) { janitor.handleWithdrawal(id); },
                  [this] { return static_cast<uint64_t>(clock->now().value()); }),
              .janitor = janitor,
              .problems = problems,
              .traces = traceLog,
              .taps = [this] { return taps(); },
              .wanted = [this](const rt::String& vm,
                               rt::EthAddr address) { return interfaceOf(vm, address); }},
          clock)) {
  AgentWorld::start();
  for (const char* const name : {"web1", "web2"})
    tellers_.push_back(rt::make<CardTeller>(name, vm(name), *healer));
  interfaceIs("Ethernet1", firstPort);
  interfaceIs("Ethernet2", secondPort);
  turn();
}

VmConfig::Ptr HostCardsWorld::vmWithCard(const std::string& name, const char* mac,
                                         const char* interface) {
  const auto vm = addVm(name);
  addCard(vm, "nic00", mac, interface);
  return vm;
}

host::Janitor::Tools HostCardsWorld::janitorsTools() {
  return {.agent = root,
          .ourAddresses = [this] { return configuredAddresses(); },
          .deviceOf =
              [this](const rt::String& interface) {
                const auto device =
                    deviceIntfStatusDir->intfStatusAndDeviceName(rt::IntfId(interface));
                return device ? device->ifIndex : 0;
              },
          .taps = [this] { return taps(); },
          .nodesOfOthers = [this] { return nodesOfOthers; },
          .remove =
              [this](const rt::String& device) {
                if (!deletes) throw rt::Exception("it is busy");
                effects.add("janitor del " + device.str());
                kernel.deviceDel(device.str());
              }};
}

// Those of the fake kernel.
std::vector<host::Tap> HostCardsWorld::taps() {
  ++looks;
  if (!kernelAnswers || looks > looksAnswered) throw rt::Exception("no descriptor is left");
  std::vector<host::Tap> all;
  for (const std::string& name : kernel.macvtaps()) {
    const FakeKernel::Device& device = *kernel.device(name);
    all.push_back({name, rt::EthAddr(rt::String(device.mac)), device.lower, device.up(),
                   device.index, nodesAreKnown ? device.index : 0});
  }
  return all;
}

rt::String HostCardsWorld::interfaceOf(const rt::String& vm, rt::EthAddr address) const {
  const auto configured = config->vmConfig(vm);
  if (!configured) return {};
  for (const auto& [key, card] : configured->vnicConfigs())
    if (card->macAddr() == address) return card->intfName();
  return {};
}

void HostCardsWorld::configure(const VmConfig::Ptr& vm, const char* interface) {
  locked([&] {
    vm->vnicConfig("nic00")->intfNameIs(interface);
    healer->configured(vm->name());
  });
}

std::set<rt::EthAddr> HostCardsWorld::configuredAddresses() const {
  std::set<rt::EthAddr> addresses;
  for (const auto& [name, vm] : config->vmConfigs())
    for (const auto& [key, card] : vm->vnicConfigs()) addresses.insert(card->macAddr());
  return addresses;
}

void HostCardsWorld::pass(double seconds, double step) {
  for (int steps = static_cast<int>(seconds / step + 0.5); steps > 0; --steps) {
    advance(step);
    turn();
    answer();
    turn();
    locked([&] {
      while (healer->pass()) continue;
    });
  }
}

void HostCardsWorld::answer() {
  for (const auto& [name, machine] : vmSm()->vmConfigSms()) {
    if (!machine->monSm()) continue;
    QmpPeer& qemu = processes.monitor(name.str());
    if (!machine->monSm()->helloMessage()) qemu.send(greeting());
    const auto now = qemu.answer();
    auto& all = asked_[name.str()];
    all.insert(all.end(), now.begin(), now.end());
  }
}

std::vector<std::string> HostCardsWorld::asked(const std::string& vmName) {
  auto all = std::exchange(asked_[vmName], {});
  std::erase_if(all,
                [](const std::string& text) { return text.find("\"query-") != std::string::npos; });
  return all;
}

std::string HostCardsWorld::problem(const char* vmName) const {
  const auto record = hostStatus->vmProblem(vmName);
  return record ? record->source().str() + ": " + record->problem().str() : "";
}

bool HostCardsWorld::isAttached(const std::string& vmName) const {
  const auto own = card(vmName);
  const std::string name = own->macvtapDev().str();
  const auto* const device = kernel.device(name);
  return own->status() == Vnic::linkUp && device && device->up() &&
         device->mac == own->macAddr().text().str() &&
         kernel.tapOf(name) == static_cast<int>(own->macvtapFd());
}

std::vector<std::string> HostCardsWorld::deletions() {
  auto all = effects.take();
  std::erase_if(all,
                [](const std::string& effect) { return effect.find("del ") == std::string::npos; });
  return all;
}

}  // namespace Vm::fakes
