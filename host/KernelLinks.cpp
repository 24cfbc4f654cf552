#include "host/KernelLinks.h"

#include "runtime/net/NamespaceName.h"

namespace host {

namespace {

KernelNetInfo::InterfaceKey keyOf(uint32_t ifIndex) {
  return {rt::NamespaceName::defaultNamespace(), ifIndex};
}

}  // namespace

KernelLinks::KernelLinks(KernelNetInfo::Status::Ptr status, InterfaceNames::Ptr names)
    : status_(std::move(status)),
      names_(std::move(names)),
      descriptor_(*this, rt::make<rt::FileDescriptor>("kernel links")) {
  handleInitialized();
}

void KernelLinks::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
  descriptor_->descriptorIs(source_.descriptor());
  descriptor_->notifyOnReadableIs(true);
  handleReadable();
}

// What is gone goes first: a name may have passed to another device.
void KernelLinks::handleReadable() {
  const KernelLinkTable now = source_.read();
  const KernelLinkTable before = std::exchange(links_, now);
  for (const auto& [ifIndex, link] : before)
    if (const auto found = now.find(ifIndex); found == now.end() || found->second != link)
      withdraw(ifIndex, link);
  for (const auto& [ifIndex, link] : now)
    if (const auto found = before.find(ifIndex); found == before.end() || found->second != link)
      present(ifIndex, link);
}

void KernelLinks::withdraw(uint32_t ifIndex, const KernelLink& link) {
  status_->interfaceDel(keyOf(ifIndex));
  if (link.canBeInterface) names_->deviceDel(link.name);
}

void KernelLinks::present(uint32_t ifIndex, const KernelLink& link) {
  if (link.canBeInterface) names_->deviceIs(link.name);
  status_->interfaceIs(keyOf(ifIndex), link.name);
}

}  // namespace host
