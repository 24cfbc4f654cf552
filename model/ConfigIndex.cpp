#include "model/ConfigIndex.h"

#include <algorithm>

namespace model {

ConfigIndex::ConfigIndex(const Vm::Config& config) {
  for (const auto& [name, vm] : config.vmConfigs()) vmIs(*vm);
}

void ConfigIndex::vmIs(const Vm::VmConfig& vm) {
  vmDel(vm.name());
  Claims& claims = vms_[vm.name()];
  for (const auto& [key, card] : vm.vnicConfigs()) {
    claims.cards.emplace_back(card->macAddr(), key);
    cards_[card->macAddr()].insert({vm.name(), key});
  }
  if (!vm.enabled() || vm.vncPort() == 0) return;
  claims.port = vm.vncPort();
  ports_[claims.port].insert(vm.name());
}

void ConfigIndex::vmDel(const rt::String& name) {
  const auto known = vms_.find(name);
  if (known == vms_.end()) return;
  for (const auto& [mac, key] : known->second.cards) {
    const auto cards = cards_.find(mac);
    cards->second.erase({name, key});
    if (cards->second.empty()) cards_.erase(cards);
  }
  if (const auto port = ports_.find(known->second.port); port != ports_.end()) {
    port->second.erase(name);
    if (port->second.empty()) ports_.erase(port);
  }
  vms_.erase(known);
}

std::optional<CardName> ConfigIndex::cardWith(const rt::EthAddr& mac, const rt::String& vm) const {
  const auto cards = cards_.find(mac);
  if (cards == cards_.end()) return std::nullopt;
  // The VM's own cards stand together: the first of all is another's, or the one behind them.
  auto card = cards->second.begin();
  if (card->vm == vm) card = cards->second.lower_bound({vm + rt::String("", 1), {}});
  return card == cards->second.end() ? std::nullopt : std::optional(*card);
}

std::optional<rt::String> ConfigIndex::vmWithPort(uint32_t port, const rt::String& vm) const {
  const auto vms = ports_.find(port);
  if (vms == ports_.end()) return std::nullopt;
  const auto other = std::find_if(vms->second.begin(), vms->second.end(),
                                  [&](const rt::String& name) { return name != vm; });
  return other == vms->second.end() ? std::nullopt : std::optional(*other);
}

}  // namespace model
