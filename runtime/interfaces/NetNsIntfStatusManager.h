// Keeps the interface status of one network namespace.
#pragma once

#include <map>
#include <set>

#include "runtime/entity/Reactor.h"
#include "runtime/records/Interface.h"
#include "runtime/records/KernelNetInfo.h"

namespace Interface {

// Joins what the host says an interface's device is called with the devices that the kernel has.
//
//   interface was | the kernel now has its device | it does
//   absent        | yes                           | arrival: directory, then device status
//   absent        | no                            | nothing
//   present       | yes, same name and ifindex    | nothing
//   present       | yes, another one              | removal, then arrival
//   present       | no                            | removal: device status, then directory
//
// So whoever hears of a device status finds the interface in the directory; a device that was
// replaced under its name is heard of as gone and come. When the manager ends, both directories
// stay as they are, and the next one goes on from there.
class NetNsIntfStatusManager final : public rt::StateMachineOf<NetNsIntfStatusManager> {
 public:
  NetNsIntfStatusManager(AllIntfStatusDir::Ptr allIntfStatusDir,
                         AllIntfStatusLocalDir::PtrConst allIntfStatusLocalDir, bool filterByNetNs,
                         DeviceIntfStatusDir::Ptr deviceIntfStatusDir,
                         KernelNetInfo::Status::PtrConst kniStatus, rt::NamespaceName netNs);

  const DeviceIntfStatusDir::Ptr& deviceIntfStatusDir() const { return deviceIntfStatusDir_; }
  const KernelNetInfo::Status::PtrConst& kniStatus() const { return kniStatus_.notifier(); }
  const rt::NamespaceName& netNs() const { return netNs_; }

  static constexpr std::string_view typeName = "Interface::NetNsIntfStatusManager";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"initialized", &NetNsIntfStatusManager::initialized>,
      rt::Attribute<"deviceIntfStatusDir", &NetNsIntfStatusManager::deviceIntfStatusDir>,
      rt::Attribute<"kniStatus", &NetNsIntfStatusManager::kniStatus>,
      rt::Attribute<"netNs", &NetNsIntfStatusManager::netNs>>;

 private:
  void handleInitialized();
  void handleInterface(const KernelNetInfo::InterfaceKey& key);
  void handleIntfStatusLocal(const rt::IntfId& id);

  // Take note of a name of ours or of the kernel's, without acting on it; they return the device
  // that was noted before, or an empty text.
  rt::String noteInterface(const KernelNetInfo::InterfaceKey& key);
  void noteLocal(const rt::IntfId& id);

  // Updates all of `toUpdate_`. What handlers change meanwhile is acted on after the update that
  // they run in, so that its steps stay together; a handler's exception keeps no step from being
  // done and is thrown at the end.
  void doUpdates();
  void doUpdate(const rt::IntfId& id);
  void doArrive(const rt::IntfId& id, const IntfStatusAndDeviceName& device);
  std::optional<IntfStatusAndDeviceName> devicePresent(const rt::IntfId& id) const;

  const AllIntfStatusDir::Ptr allIntfStatusDir_;
  const bool filterByNetNs_;
  const DeviceIntfStatusDir::Ptr deviceIntfStatusDir_;
  const rt::NamespaceName netNs_;

  // What was noted, by name and by number, so that one change costs the same however many
  // interfaces there are.
  std::map<uint32_t, rt::String> deviceNames_;
  std::map<rt::String, std::set<uint32_t>> ifIndexes_;
  std::map<rt::IntfId, rt::String> localNames_;
  std::map<rt::String, std::set<rt::IntfId>> intfIds_;

  std::set<rt::IntfId> toUpdate_;
  bool updating_ = false;

  using Sm = NetNsIntfStatusManager;
  rt::Reactor<Sm, const AllIntfStatusLocalDir,
              rt::On<&AllIntfStatusLocalDir::intfStatusLocal, &Sm::handleIntfStatusLocal>>
      allIntfStatusLocalDir_;
  rt::Reactor<Sm, const KernelNetInfo::Status,
              rt::On<&KernelNetInfo::Status::interface, &Sm::handleInterface>>
      kniStatus_;
};

// The managers of all namespaces, by namespace. Created by the agent.
class NetNsIntfStatusManagerRoot final : public rt::EntityOf<NetNsIntfStatusManagerRoot> {
 public:
  using Managers = rt::Collection<rt::NamespaceName, NetNsIntfStatusManager::Ptr>;

  // `filterByNetNs`: a manager follows only interfaces whose device belongs in its namespace.
  NetNsIntfStatusManagerRoot(AllIntfStatusDir::Ptr allIntfStatusDir,
                             AllIntfStatusLocalDir::PtrConst allIntfStatusLocalDir,
                             bool filterByNetNs);

  const AllIntfStatusDir::Ptr& allIntfStatusDir() const { return allIntfStatusDir_; }
  const AllIntfStatusLocalDir::PtrConst& allIntfStatusLocalDir() const { return localDir_; }
  bool filterByNetNs() const { return filterByNetNs_; }

  const Managers& intfStatusManagers() const { return intfStatusManager_; }
  NetNsIntfStatusManager::Ptr intfStatusManager(const rt::NamespaceName& netNs) const;
  // ReinstantiationException when `netNs` has a manager of other entities.
  NetNsIntfStatusManager::Ptr intfStatusManagerIs(
      const DeviceIntfStatusDir::Ptr& deviceIntfStatusDir,
      const KernelNetInfo::Status::PtrConst& kniStatus, const rt::NamespaceName& netNs);
  NetNsIntfStatusManager::Ptr intfStatusManagerDel(const rt::NamespaceName& netNs);

  static constexpr std::string_view typeName = "Interface::NetNsIntfStatusManagerRoot";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"allIntfStatusDir", &NetNsIntfStatusManagerRoot::allIntfStatusDir>,
      rt::Attribute<"allIntfStatusLocalDir", &NetNsIntfStatusManagerRoot::allIntfStatusLocalDir>,
      rt::Attribute<"filterByNetNs", &NetNsIntfStatusManagerRoot::filterByNetNs>,
      rt::CollectionAttribute<"intfStatusManager", &NetNsIntfStatusManagerRoot::intfStatusManager,
                              &NetNsIntfStatusManagerRoot::intfStatusManagers, nullptr,
                              &NetNsIntfStatusManagerRoot::intfStatusManagerDel>>;

 private:
  const AllIntfStatusDir::Ptr allIntfStatusDir_;
  const AllIntfStatusLocalDir::PtrConst localDir_;
  const bool filterByNetNs_;
  Managers intfStatusManager_;
};

}  // namespace Interface
