// The static MAC entries, applied to the kernel's bridge.
#pragma once

#include <compare>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include "host/base/HostStatus.h"
#include "runtime/entity/Reactor.h"
#include "runtime/loop/Clock.h"
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
  struct Answer {
    Added added = Added::done;
    rt::String failure;  // why not; empty when it did not fail
  };

  virtual ~BridgeKernel() = default;
  // Nothing when there is no such bridge.
  virtual std::optional<Bridge> bridge(const rt::String& name) = 0;
  virtual Answer add(const Bridge& bridge, const BridgeEntry& entry) = 0;
  // Whether it is removed, as one that is not there is: else it must be tried again. A bridge that
  // has lost a VLAN keeps its entries, of no use, and lets nobody at them until it has it again.
  virtual bool remove(const Bridge& bridge, const BridgeEntry& entry) = 0;
};
// Over rtnetlink.
std::unique_ptr<BridgeKernel> kernelBridges();

// Keeps the bridge's entries as the host's fdb records say: adds what is missing, removes what is
// ours and no longer wanted, and never touches another's. Which are ours is in the records, so that
// the next daemon knows.
//
//   bridge           | it does
//   none             | nothing
//   the one known    | applies the difference
//   another one      | applies all anew: the kernel dropped what the old one had
//
// An entry may be removed by somebody, or be refused for a VLAN that the bridge gets later, and
// nobody tells. So while any are wanted, or wait to be removed, all are applied again every few
// seconds. A failure is reported once.
class BridgeFdb final : public rt::StateMachineOf<BridgeFdb> {
 public:
  static constexpr rt::Seconds interval{5};

  // `leftover`: what an earlier daemon had applied to the bridge of that name.
  BridgeFdb(rt::String bridge, std::unique_ptr<BridgeKernel> kernel, HostStatus::Ptr status,
            KernelNetInfo::Status::PtrConst devices, std::set<BridgeEntry> leftover,
            rt::Clock::Ptr clock);

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
  void add(const Bridge& bridge, const BridgeEntry& entry);
  void show(const std::set<rt::String>& keys, bool applied);

  const rt::String name_;
  const std::unique_ptr<BridgeKernel> kernel_;
  uint32_t ifIndex_ = 0;                        // of the bridge that `ours_` are in; 0: of none yet
  std::set<BridgeEntry> ours_;                  // what we added
  std::map<BridgeEntry, rt::String> failures_;  // that were reported
  bool changed_ = true;

  rt::Reactor<BridgeFdb, HostStatus, rt::On<&HostStatus::fdb, &BridgeFdb::noteKey>> status_;
  rt::Reactor<BridgeFdb, const KernelNetInfo::Status,
              rt::On<&KernelNetInfo::Status::interface, &BridgeFdb::noteDevice>>
      devices_;
  rt::ClockReactor<BridgeFdb, &BridgeFdb::note> clock_;
};

// The entry that a record's key "VLAN/MAC" stands for; nothing for other text.
std::optional<BridgeEntry> bridgeEntryFromKey(std::string_view key);

}  // namespace host
