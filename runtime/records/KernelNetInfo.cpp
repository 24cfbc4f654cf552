#include "runtime/records/KernelNetInfo.h"

#include "runtime/entity/TypeRegistry.h"

namespace KernelNetInfo {

rt::String InterfaceKey::text() const { return netNs.text() + "/" + rt::toText(ifIndex); }

std::optional<InterfaceKey> InterfaceKey::fromText(std::string_view text) {
  const auto slash = text.rfind('/');
  if (slash == std::string_view::npos) return std::nullopt;
  const auto netNs = rt::NamespaceName::fromText(text.substr(0, slash));
  const auto ifIndex = rt::fromText<uint32_t>(text.substr(slash + 1));
  if (!netNs || !ifIndex) return std::nullopt;
  return InterfaceKey{*netNs, *ifIndex};
}

void Status::interfaceIs(const InterfaceKey& key, const rt::String& deviceName) {
  store<&Status::interface>(interface_, key, deviceName);
}

void Status::interfaceDel(const InterfaceKey& key) { remove<&Status::interface>(interface_, key); }

namespace {

const rt::RegisteredTypes<Status> registered;

}  // namespace

}  // namespace KernelNetInfo
