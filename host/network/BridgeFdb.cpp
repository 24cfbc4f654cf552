#include "host/network/BridgeFdb.h"

#include <utility>

#include "host/base/Report.h"
#include "runtime/base/Text.h"

namespace host {

std::optional<BridgeEntry> bridgeEntryFromKey(std::string_view key) {
  const size_t slash = key.find('/');
  if (slash == std::string_view::npos) return std::nullopt;
  const auto vlan = rt::fromText<uint16_t>(key.substr(0, slash));
  const auto mac = rt::EthAddr::fromText(key.substr(slash + 1));
  if (!vlan || !mac) return std::nullopt;
  return BridgeEntry{*mac, *vlan};
}

BridgeFdb::BridgeFdb(rt::String bridge, std::unique_ptr<BridgeKernel> kernel,
                     HostStatus::Ptr status, KernelNetInfo::Status::PtrConst devices,
                     std::set<BridgeEntry> leftover, rt::Clock::Ptr clock)
    : name_(std::move(bridge)),
      kernel_(std::move(kernel)),
      ours_(std::move(leftover)),
      status_(*this, std::move(status)),
      devices_(*this, std::move(devices)),
      clock_(*this, std::move(clock)) {
  handleInitialized();
}

void BridgeFdb::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
}

// Each entry with the records that want it: several VLANs share one in a bridge without VLANs.
std::map<BridgeEntry, std::set<rt::String>> BridgeFdb::wanted(bool filtersVlans) const {
  std::map<BridgeEntry, std::set<rt::String>> entries;
  for (const auto& [key, record] : status_->fdbEntries()) {
    auto entry = bridgeEntryFromKey(key);
    if (!entry) continue;
    if (!filtersVlans) entry->vlan = 0;
    entries[*entry].insert(key);
  }
  return entries;
}

void BridgeFdb::pass() {
  if (!changed_) return;
  const auto bridge = kernel_->bridge(name_);
  const uint32_t ifIndex = bridge ? bridge->ifIndex : 0;
  // What we had in a bridge that is gone went with it.
  if (ifIndex_ != 0 && ifIndex != ifIndex_) {
    ours_.clear();
    failures_.clear();
  }
  ifIndex_ = ifIndex;
  if (bridge) {
    apply(*bridge);
  } else {
    for (const auto& [entry, keys] : wanted(/*filtersVlans=*/true)) show(keys, false);
  }
  changed_ = false;
  if (bridge && !(status_->fdbEntries().empty() && ours_.empty()))
    clock_.timeMinIs(clock_.notifier()->now() + interval);
}

void BridgeFdb::apply(const Bridge& bridge) {
  const auto entries = wanted(bridge.filtersVlans);
  for (auto own = ours_.begin(); own != ours_.end();) {
    const bool isGone = !entries.contains(*own) && kernel_->remove(bridge, *own);
    own = isGone ? ours_.erase(own) : std::next(own);
  }
  std::erase_if(failures_, [&](const auto& failed) { return !entries.contains(failed.first); });
  for (const auto& [entry, keys] : entries) {
    add(bridge, entry);
    show(keys, ours_.contains(entry));
  }
}

// What we have is added again: it is there then, or somebody had removed it.
void BridgeFdb::add(const Bridge& bridge, const BridgeEntry& entry) {
  const auto [added, failure] = kernel_->add(bridge, entry);
  if (added == BridgeKernel::Added::done) ours_.insert(entry);
  if (added != BridgeKernel::Added::failed) {
    failures_.erase(entry);
    return;
  }
  // One that was ours stays it, for the bridge may have it still.
  if (std::exchange(failures_[entry], failure) != failure) report(failure);
}

void BridgeFdb::show(const std::set<rt::String>& keys, bool applied) {
  for (const rt::String& key : keys)
    if (const auto record = status_->fdb(key)) record->bridgeIs(applied ? name_ : rt::String());
}

}  // namespace host
