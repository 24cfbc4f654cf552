#include "host/network/FdbStatus.h"

namespace host {

VlanFdbStatus::VlanFdbStatus(Bridging::Input::FdbConfig::PtrConst vlan, HostStatus::Ptr status)
    : status_(std::move(status)), vlan_(*this, std::move(vlan)) {
  handleInitialized();
}

void VlanFdbStatus::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
  for (const auto& [address, host] : vlan_->configuredHosts()) handleHost(address);
}

rt::String VlanFdbStatus::keyOf(const rt::EthAddr& address) const {
  return rt::toText(vlan_->vlanId()) + "/" + rt::toText(address);
}

void VlanFdbStatus::handleHost(const rt::EthAddr& address) {
  const auto host = vlan_->configuredHost(address);
  const rt::String key = keyOf(address);
  if (!host) {
    shown_.erase(address);
    return status_->fdbDel(key);
  }
  shown_[address] = key;
  const auto record = status_->fdbIs(key);
  record->intfIs(host->intf.name());
  record->entryTypeIs(host->entryType);
}

void VlanFdbStatus::clear() {
  for (const auto& [address, key] : shown_) status_->fdbDel(key);
  shown_.clear();
}

FdbStatus::FdbStatus(Bridging::Input::Config::PtrConst config, HostStatus::Ptr status)
    : status_(std::move(status)), config_(*this, std::move(config)) {
  handleInitialized();
}

void FdbStatus::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
  for (const auto& [id, vlan] : config_->fdbConfigs()) handleVlan(id);
}

void FdbStatus::handleVlan(const Bridging::VlanId& id) {
  if (const auto old = vlans_.find(id); old != vlans_.end()) {
    old->second->clear();
    vlans_.erase(old);
  }
  if (const auto vlan = config_->fdbConfig(id)) vlans_[id] = rt::make<VlanFdbStatus>(vlan, status_);
}

}  // namespace host
