// The static MAC entries, as the database shows them.
#pragma once

#include <map>

#include "host/base/HostStatus.h"
#include "runtime/entity/Reactor.h"
#include "runtime/records/Bridging.h"

namespace host {

// Follows the entries of one VLAN. Owned by FdbStatus.
class VlanFdbStatus final : public rt::StateMachineOf<VlanFdbStatus> {
 public:
  VlanFdbStatus(Bridging::Input::FdbConfig::PtrConst vlan, HostStatus::Ptr status);

  // The VLAN has gone, and its entries with it.
  void clear();

  static constexpr std::string_view typeName = "host::VlanFdbStatus";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &VlanFdbStatus::initialized>>;

 private:
  void handleInitialized();
  void handleHost(const rt::EthAddr& address);
  rt::String keyOf(const rt::EthAddr& address) const;

  const HostStatus::Ptr status_;
  std::map<rt::EthAddr, rt::String> shown_;  // address -> key

  rt::Reactor<VlanFdbStatus, const Bridging::Input::FdbConfig,
              rt::On<&Bridging::Input::FdbConfig::configuredHost, &VlanFdbStatus::handleHost>>
      vlan_;
};

// Shows each configured host of each VLAN as a record of the host's status.
class FdbStatus final : public rt::StateMachineOf<FdbStatus> {
 public:
  FdbStatus(Bridging::Input::Config::PtrConst config, HostStatus::Ptr status);

  static constexpr std::string_view typeName = "host::FdbStatus";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &FdbStatus::initialized>>;

 private:
  void handleInitialized();
  void handleVlan(const Bridging::VlanId& id);

  const HostStatus::Ptr status_;
  std::map<Bridging::VlanId, VlanFdbStatus::Ptr> vlans_;

  rt::Reactor<FdbStatus, const Bridging::Input::Config,
              rt::On<&Bridging::Input::Config::fdbConfig, &FdbStatus::handleVlan>>
      config_;
};

}  // namespace host
