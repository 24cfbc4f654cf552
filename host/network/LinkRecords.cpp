#include "host/network/LinkRecords.h"

#include "runtime/base/FirstException.h"
#include "runtime/net/NamespaceName.h"

namespace host {

namespace {

KernelNetInfo::InterfaceKey keyOf(uint32_t ifIndex) {
  return {rt::NamespaceName::defaultNamespace(), ifIndex};
}

// Calls `act` for each device of `table` that is not in `other`, or is another there.
template <class Act>
void forEachMissing(const KernelLinkTable& table, const KernelLinkTable& other, Act act) {
  for (const auto& [ifIndex, link] : table)
    if (const auto found = other.find(ifIndex);
        found == other.end() || !found->second.isSameDevice(link))
      act(ifIndex, link);
}

}  // namespace

void LinkRecords::linksAre(const KernelLinkTable& now) {
  const KernelLinkTable before = std::exchange(links_, now);
  rt::FirstException failures;
  forEachMissing(before, now, [&](uint32_t ifIndex, const KernelLink& link) {
    failures.run([&] { withdraw(ifIndex, link); });
  });
  forEachMissing(now, before, [&](uint32_t ifIndex, const KernelLink& link) {
    failures.run([&] { present(ifIndex, link); });
  });
  for (const auto& link : now)
    if (const auto was = before.find(link.first);
        was != before.end() && was->second.hasCarrier != link.second.hasCarrier)
      failures.run([&] { names_->carrierIs(link.second.name, link.second.hasCarrier); });
  failures.rethrow();
}

void LinkRecords::withdraw(uint32_t ifIndex, const KernelLink& link) {
  rt::FirstException failures;
  // Renamed, it stays, with what guests have on it.
  if (links_.contains(ifIndex)) failures.run([&] { names_->deviceLeaves(link.name); });
  failures.run([&] { status_->interfaceDel(keyOf(ifIndex)); });
  if (link.macvtap) failures.run([&] { macvtap_.deviceDel(ifIndex); });
  failures.run([&] { names_->carrierIs(link.name, false); });
  if (link.canBeInterface) {
    failures.run([&] { names_->deviceDel(link.name); });
    failures.run([&] { names_->deviceIsTold(link.name); });
  }
  failures.rethrow();
}

void LinkRecords::present(uint32_t ifIndex, const KernelLink& link) {
  rt::FirstException failures;
  if (link.macvtap) failures.run([&] { macvtap_.deviceIs(ifIndex, link.name, *link.macvtap); });
  failures.run([&] { names_->carrierIs(link.name, link.hasCarrier); });
  if (link.canBeInterface) failures.run([&] { names_->deviceIs(link.name); });
  failures.run([&] { status_->interfaceIs(keyOf(ifIndex), link.name); });
  if (link.canBeInterface) failures.run([&] { names_->deviceIsTold(link.name); });
  failures.rethrow();
}

}  // namespace host
