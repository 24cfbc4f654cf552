#include "runtime/interfaces/NetNsIntfStatusManager.h"

#include "runtime/base/FirstException.h"
#include "runtime/base/Raised.h"
#include "runtime/entity/TypeRegistry.h"

namespace Interface {

namespace {

// Removes `value` from the set under `name`, and the set when that was its last.
template <class V>
void eraseFrom(std::map<rt::String, std::set<V>>& sets, const rt::String& name, const V& value) {
  const auto at = sets.find(name);
  if (at == sets.end()) return;
  at->second.erase(value);
  if (at->second.empty()) sets.erase(at);
}

}  // namespace

NetNsIntfStatusManager::NetNsIntfStatusManager(
    AllIntfStatusDir::Ptr allIntfStatusDir, AllIntfStatusLocalDir::PtrConst allIntfStatusLocalDir,
    bool filterByNetNs, DeviceIntfStatusDir::Ptr deviceIntfStatusDir,
    KernelNetInfo::Status::PtrConst kniStatus, rt::NamespaceName netNs)
    : allIntfStatusDir_(std::move(allIntfStatusDir)),
      filterByNetNs_(filterByNetNs),
      deviceIntfStatusDir_(std::move(deviceIntfStatusDir)),
      netNs_(std::move(netNs)),
      allIntfStatusLocalDir_(*this, std::move(allIntfStatusLocalDir)),
      kniStatus_(*this, std::move(kniStatus)) {
  handleInitialized();
}

void NetNsIntfStatusManager::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
  for (const auto& [key, deviceName] : kniStatus_->interfaces()) noteInterface(key);
  for (const auto& [id, local] : allIntfStatusLocalDir_->intfStatusLocals()) noteLocal(id);
  // What an earlier manager left and what is to come.
  for (const auto& [id, device] : deviceIntfStatusDir_->intfStatusAndDeviceNames())
    toUpdate_.insert(id);
  for (const auto& [id, local] : allIntfStatusLocalDir_->intfStatusLocals()) toUpdate_.insert(id);
  doUpdates();
}

void NetNsIntfStatusManager::handleInterface(const KernelNetInfo::InterfaceKey& key) {
  if (key.netNs != netNs_) return;
  const rt::String oldName = noteInterface(key);
  const rt::String newName = kniStatus_->interface(key);
  for (const rt::String& name : {oldName, newName})
    if (const auto at = intfIds_.find(name); at != intfIds_.end())
      toUpdate_.insert(at->second.begin(), at->second.end());
  doUpdates();
}

void NetNsIntfStatusManager::handleIntfStatusLocal(const rt::IntfId& id) {
  noteLocal(id);
  toUpdate_.insert(id);
  doUpdates();
}

rt::String NetNsIntfStatusManager::noteInterface(const KernelNetInfo::InterfaceKey& key) {
  if (key.netNs != netNs_) return {};
  rt::String oldName;
  if (const auto node = deviceNames_.extract(key.ifIndex)) {
    oldName = node.mapped();
    eraseFrom(ifIndexes_, oldName, key.ifIndex);
  }
  if (const rt::String name = kniStatus_->interface(key); !name.empty()) {
    deviceNames_[key.ifIndex] = name;
    ifIndexes_[name].insert(key.ifIndex);
  }
  return oldName;
}

void NetNsIntfStatusManager::noteLocal(const rt::IntfId& id) {
  if (const auto node = localNames_.extract(id)) eraseFrom(intfIds_, node.mapped(), id);
  const auto local = allIntfStatusLocalDir_->intfStatusLocal(id);
  if (!local || (filterByNetNs_ && local->netNs != netNs_)) return;
  localNames_[id] = local->deviceName;
  intfIds_[local->deviceName].insert(id);
}

std::optional<IntfStatusAndDeviceName> NetNsIntfStatusManager::devicePresent(
    const rt::IntfId& id) const {
  const auto local = localNames_.find(id);
  if (local == localNames_.end()) return std::nullopt;
  const auto device = ifIndexes_.find(local->second);
  if (device == ifIndexes_.end()) return std::nullopt;
  // Two of one name: the older one is gone and its end was not told yet.
  return IntfStatusAndDeviceName{local->second, *device->second.rbegin()};
}

void NetNsIntfStatusManager::doUpdates() {
  if (updating_) return;
  const rt::Raised now(updating_);
  rt::FirstException failures;
  while (!toUpdate_.empty())
    failures.run([this] { doUpdate(toUpdate_.extract(toUpdate_.begin()).value()); });
  failures.rethrow();
}

void NetNsIntfStatusManager::doUpdate(const rt::IntfId& id) {
  const auto now = devicePresent(id);
  const auto before = deviceIntfStatusDir_->intfStatusAndDeviceName(id);
  rt::FirstException failures;
  if (before && before != now) {
    failures.run([&] { deviceIntfStatusDir_->intfStatusAndDeviceNameDel(id); });
    failures.run([&] { allIntfStatusDir_->intfStatusDel(id); });
  }
  if (now) failures.run([&] { doArrive(id, *now); });
  failures.rethrow();
}

void NetNsIntfStatusManager::doArrive(const rt::IntfId& id, const IntfStatusAndDeviceName& device) {
  rt::FirstException failures;
  failures.run([&] {
    if (const auto known = allIntfStatusDir_->intfStatus(id))
      return known->deviceNameIs(device.deviceName);
    const auto arrived = rt::make<IntfStatus>(id);
    arrived->deviceNameIs(device.deviceName);
    allIntfStatusDir_->intfStatusMount(arrived);
  });
  failures.run([&] { deviceIntfStatusDir_->intfStatusAndDeviceNameIs(id, device); });
  failures.rethrow();
}

NetNsIntfStatusManagerRoot::NetNsIntfStatusManagerRoot(
    AllIntfStatusDir::Ptr allIntfStatusDir, AllIntfStatusLocalDir::PtrConst allIntfStatusLocalDir,
    bool filterByNetNs)
    : allIntfStatusDir_(std::move(allIntfStatusDir)),
      localDir_(std::move(allIntfStatusLocalDir)),
      filterByNetNs_(filterByNetNs) {
  if (!allIntfStatusDir_) throw rt::NullArgumentException(typeName, "allIntfStatusDir");
  if (!localDir_) throw rt::NullArgumentException(typeName, "allIntfStatusLocalDir");
}

NetNsIntfStatusManager::Ptr NetNsIntfStatusManagerRoot::intfStatusManager(
    const rt::NamespaceName& netNs) const {
  return intfStatusManager_.get(netNs);
}

NetNsIntfStatusManager::Ptr NetNsIntfStatusManagerRoot::intfStatusManagerIs(
    const DeviceIntfStatusDir::Ptr& deviceIntfStatusDir,
    const KernelNetInfo::Status::PtrConst& kniStatus, const rt::NamespaceName& netNs) {
  if (!deviceIntfStatusDir || !kniStatus)
    throw rt::NullArgumentException(typeName, "intfStatusManager");
  if (auto existing = intfStatusManager(netNs)) {
    rt::requireSame<NetNsIntfStatusManager, &NetNsIntfStatusManager::deviceIntfStatusDir>(
        *existing, deviceIntfStatusDir);
    rt::requireSame<NetNsIntfStatusManager, &NetNsIntfStatusManager::kniStatus>(*existing,
                                                                                kniStatus);
    return existing;
  }
  return instantiate<&NetNsIntfStatusManagerRoot::intfStatusManager>(
      intfStatusManager_, netNs, allIntfStatusDir_, localDir_, filterByNetNs_, deviceIntfStatusDir,
      kniStatus, netNs);
}

NetNsIntfStatusManager::Ptr NetNsIntfStatusManagerRoot::intfStatusManagerDel(
    const rt::NamespaceName& netNs) {
  return remove<&NetNsIntfStatusManagerRoot::intfStatusManager>(intfStatusManager_, netNs);
}

namespace {

const rt::RegisteredTypes<NetNsIntfStatusManager, NetNsIntfStatusManagerRoot> registered;

}  // namespace

}  // namespace Interface
