// The static MAC entries, applied to the kernel's bridge.
#pragma once

#include <compare>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include "host/base/HostStatus.h"
#include "runtime/entity/Reactor.h"
#include "runtime/net/EthAddr.h"
#include "runtime/records/KernelNetInfo.h"

namespace host {

// An entry of a bridge device itself: frames for that address are ours. In a bridge that does not
// filter VLANs there is one for all of them, with VLAN 0.
struct BridgeEntry {
  rt::EthAddr mac;
  uint16_t vlan = 0;

  friend bool operator==(const BridgeEntry&, const BridgeEntry&) = default;
  friend auto operator<=>(const BridgeEntry&, const BridgeEntry&) = default;
};

// A bridge as it is now. Another device of the same name has another index.
struct Bridge {
  uint32_t ifIndex = 0;
  bool filtersVlans = false;
};

// The kernel's bridges.
class BridgeKernel {
 public:
  enum class Added : uint8_t { done, wasThere, failed };

  virtual ~BridgeKernel() = default;
  // Nothing when there is no such bridge.
  virtual std::optional<Bridge> bridge(const rt::String& name) = 0;
  virtual Added add(const Bridge& bridge, const BridgeEntry& entry) = 0;
  // One that is not there is removed already.
  virtual void remove(const Bridge& bridge, const BridgeEntry& entry) = 0;
};
// Over rtnetlink. Failures are reported there.
std::unique_ptr<BridgeKernel> kernelBridges();

// Keeps the bridge's entries as the host's fdb records say: adds what is missing, removes what is
// ours and no longer wanted, and never touches another's. Which are ours is in the records, so that
// the next daemon knows.
//
//   bridge           | it does
//   none             | nothing
//   the one known    | applies the difference
//   another one      | applies all anew: the kernel dropped what the old one had
class BridgeFdb final : public rt::StateMachineOf<BridgeFdb> {
 public:
  // `leftover`: what an earlier daemon had applied to the bridge of that name.
  BridgeFdb(rt::String bridge, std::unique_ptr<BridgeKernel> kernel, HostStatus::Ptr status,
            KernelNetInfo::Status::PtrConst devices, std::set<BridgeEntry> leftover);

  // Once a pass of the loop.
  void pass();

  static constexpr std::string_view typeName = "host::BridgeFdb";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &BridgeFdb::initialized>>;

 private:
  void handleInitialized();
  void note() { changed_ = true; }
  void noteKey(const rt::String& /*key*/) { note(); }
  void noteDevice(const KernelNetInfo::InterfaceKey& /*key*/) { note(); }
  std::map<BridgeEntry, std::set<rt::String>> wanted(bool filtersVlans) const;
  void apply(const Bridge& bridge);
  void show(const std::set<rt::String>& keys, bool applied);

  const rt::String name_;
  const std::unique_ptr<BridgeKernel> kernel_;
  uint32_t ifIndex_ = 0;        // of the bridge that `ours_` are in; 0: of none yet
  std::set<BridgeEntry> ours_;  // what we added
  bool changed_ = true;

  rt::Reactor<BridgeFdb, HostStatus, rt::On<&HostStatus::fdb, &BridgeFdb::noteKey>> status_;
  rt::Reactor<BridgeFdb, const KernelNetInfo::Status,
              rt::On<&KernelNetInfo::Status::interface, &BridgeFdb::noteDevice>>
      devices_;
};

// The entry that a record's key "VLAN/MAC" stands for; nothing for other text.
std::optional<BridgeEntry> bridgeEntryFromKey(std::string_view key);

}  // namespace host
