// The part of the daemon that has to do with the network.
#pragma once

#include "host/Ground.h"
#include "host/StatusOfBefore.h"
#include "host/network/BridgeFdb.h"
#include "host/network/CardHealer.h"
#include "host/network/CardStatus.h"
#include "host/network/FdbStatus.h"
#include "host/network/InterfaceNames.h"
#include "host/network/Janitor.h"
#include "host/network/KernelLinks.h"
#include "host/network/RateLimit.h"
#include "host/network/SenderFilter.h"

namespace host {

// Interfaces, the kernel's devices, the guests' cards and the bridge's entries. The order of the
// members is that of their life.
class NetworkSide {
 public:
  // Is told of the VM's weightiest card without a line, before it is a problem.
  using Trouble = std::function<void(const rt::String& vm, const CardTrouble& card)>;
  NetworkSide(const Ground& ground, const StatusOfBefore& before, Trouble trouble);

  VmCards& cards() { return *cardStatus_; }
  // What is done for the VM is another.
  void policyIs(const rt::String& vm) { cardStatus_->policyIs(vm); }
  // What guests may send is another.
  void limitsAre() { rateGuard_.ratesAre(); }
  void interfaceIs(const rt::String& id, const std::optional<rt::String>& doc) {
    interfaces_->rowIs(id, doc);
  }
  // The VM's row is another.
  void rowIs(const rt::String& vm) { cardHealer_->configured(vm); }
  // Follows the kernel's devices. To be called once the configuration is known, and which guests go
  // on: what is nobody's is deleted.
  void begin();
  // Once a pass of the loop; returns whether there is more to do at once.
  bool pass();

 private:
  uint32_t deviceOf(const rt::String& interface) const;
  std::set<rt::EthAddr> ourAddresses() const;
  Vm::VnicConfig::Ptr cardOf(const rt::String& vm, rt::EthAddr address) const;
  bool isCards(rt::EthAddr address) const;
  bool isOurs(uint32_t device, const rt::String& name, rt::EthAddr address) const;
  std::optional<Nodes> nodesOfOthers() const;
  const rt::String* vmOf(rt::EthAddr address) const;

  const Ground& ground_;
  const FdbStatus::Ptr fdbStatus_;
  const BridgeFdb::Ptr bridgeFdb_;  // null: no bridge was named
  Janitor janitor_;
  const InterfaceNames::Ptr interfaces_;
  const CardHealer::Ptr cardHealer_;
  const CardStatus::Ptr cardStatus_;
  KernelSenderFilter senderFilter_;
  SenderGuard senderGuard_;
  KernelRateLimiter rateLimiter_;
  RateGuard rateGuard_;
  KernelLinks::Ptr kernelLinks_;
};

}  // namespace host
