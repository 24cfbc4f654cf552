#include "host/NetworkSide.h"

#include <algorithm>

#include "host/base/TapNode.h"
#include "host/base/Times.h"
#include "netlink/Macvtap.h"

namespace host {

namespace {

BridgeFdb::Ptr bridgeFdb(const Ground& ground) {
  const rt::String& bridge = ground.options.bridge;
  if (bridge.empty()) return nullptr;
  return rt::make<BridgeFdb>(bridge, kernelBridges(), ground.hostStatus, ground.agent.kernel,
                             bridgeEntriesOfBefore(ground.db, bridge), ground.clock);
}

}  // namespace

NetworkSide::NetworkSide(const Ground& ground, const StatusOfBefore& before, Trouble trouble)
    : ground_(ground),
      fdbStatus_(rt::make<FdbStatus>(ground.agent.bridging, ground.hostStatus)),
      bridgeFdb_(bridgeFdb(ground)),
      janitor_({.agent = ground.agent.root,
                .ourAddresses = [this] { return ourAddresses(); },
                .deviceOf = [this](const rt::String& interface) { return deviceOf(interface); },
                .taps = taps,
                .nodesOfOthers = [this] { return nodesOfOthers(); },
                .remove = [](const rt::String& tap) { netlink::deviceRemove(tap.charPtr()); }}),
      interfaces_(rt::make<InterfaceNames>(
          ground.agent.localDir, ground.hostStatus, ground.agent.present,
          [this](const rt::String& id) { janitor_.handleWithdrawal(id); }, timeOfDay,
          before.interfaces)),
      cardHealer_(rt::make<CardHealer>(
          CardHealer::Tools{.agent = ground.agent.root,
                            .present = ground.agent.present,
                            .interfaces = interfaces_,
                            .janitor = janitor_,
                            .problems = ground.problems,
                            .traces = ground.traces,
                            .taps = taps,
                            .wanted =
                                [this](const rt::String& vm, rt::EthAddr address) {
                                  const auto card = cardOf(vm, address);
                                  return card ? card->intfName() : rt::String();
                                }},
          ground.clock)),
      cardStatus_(rt::make<CardStatus>(
          CardStatus::Tools{
              .agent = ground.agent.root,
              .status = ground.hostStatus,
              .problems = ground.problems,
              .shims = ground.shims,
              .cards = *cardHealer_,
              .keyOf =
                  [this](const rt::String& vm, rt::EthAddr address) {
                    const auto card = cardOf(vm, address);
                    return card ? card->key() : rt::String();
                  },
              .followsLink =
                  [this](const rt::String& vm) {
                    return ground_.own.policy(vm)->link() == model::followed::follow;
                  },
              .now = timeOfDay,
              .trouble = std::move(trouble),
              .tell = [this](const model::Event::Ptr& event) { ground_.history.add(event); }},
          before.cards, ground.clock)),
      senderGuard_(senderFilter_, [this](rt::EthAddr address) { return isCards(address); }),
      rateGuard_(rateLimiter_, [this](rt::EthAddr address) {
        const rt::String* const vm = vmOf(address);
        return vm ? ground_.own.limits(*vm)->rateLimit() : 0;
      }) {
  interfaces_->listenerIs([this](const rt::String& id) { cardStatus_->interfaceIs(id); });
}

void NetworkSide::begin() {
  // After the interfaces' names: so a device is heard of under its interface at once.
  kernelLinks_ = rt::make<KernelLinks>(
      ground_.agent.kernel, interfaces_,
      LinkRecords::MacvtapSink{
          .deviceIs =
              [this](uint32_t device, const rt::String& name, rt::EthAddr address) {
                if (!isOurs(device, name, address)) return;
                if (ground_.options.holdsSenders) senderGuard_.deviceIs(device, name, address);
                rateGuard_.deviceIs(device, name, address);
              },
          .deviceDel = [this](uint32_t device) { rateGuard_.deviceDel(device); }},
      [this] { cardHealer_->devicesChanged(); });
  interfaces_->hasBegun();
  janitor_.sweep();
}

bool NetworkSide::pass() {
  const bool more = cardHealer_->pass();
  cardStatus_->pass();
  if (bridgeFdb_) bridgeFdb_->pass();
  return more;
}

uint32_t NetworkSide::deviceOf(const rt::String& interface) const {
  const auto device = ground_.agent.present->intfStatusAndDeviceName(rt::IntfId(interface));
  return device ? device->ifIndex : 0;
}

// Of the cards that are configured. A guest that is to be taken up keeps its cards' devices.
std::set<rt::EthAddr> NetworkSide::ourAddresses() const {
  std::set<rt::EthAddr> addresses;
  for (const auto& [name, row] : ground_.configuration.rows().rows()) {
    if (!row.valid || ground_.waiting.isWaiting(name)) continue;
    for (const auto& [key, card] : row.valid->vnicConfigs()) addresses.insert(card->macAddr());
  }
  return addresses;
}

bool NetworkSide::isCards(rt::EthAddr address) const { return vmOf(address) != nullptr; }

// Null: the VM has no card of that address.
Vm::VnicConfig::Ptr NetworkSide::cardOf(const rt::String& vm, rt::EthAddr address) const {
  const VmRow* const row = ground_.configuration.rows().row(vm);
  if (!row || !row->valid) return nullptr;
  for (const auto& [key, card] : row->valid->vnicConfigs())
    if (card->macAddr() == address) return card;
  return nullptr;
}

// The agent has made it for a card, or an earlier one: then no other program has it open.
bool NetworkSide::isOurs(uint32_t device, const rt::String& name, rt::EthAddr address) const {
  if (!isCards(address)) return false;
  const auto all = host::cards(*ground_.agent.root);
  if (std::any_of(all.begin(), all.end(),
                  [&](const Card& card) { return card.tap == name && card.mac == address; }))
    return true;
  const dev_t node = tapNode(name, device);
  if (node == 0) return false;  // it has gone
  const auto others = nodesOfOthers();
  return others && !others->contains(node);
}

std::optional<Nodes> NetworkSide::nodesOfOthers() const {
  const auto users = guest::userRangeFrom(ground_.options.guestUsers.str());
  return host::nodesOfOthers(users.value_or(guest::UserRange()));
}

// Null: no card that is configured has that address.
const rt::String* NetworkSide::vmOf(rt::EthAddr address) const {
  for (const auto& [name, row] : ground_.configuration.rows().rows()) {
    if (!row.valid) continue;
    for (const auto& [key, card] : row.valid->vnicConfigs())
      if (card->macAddr() == address) return &name;
  }
  return nullptr;
}

}  // namespace host
