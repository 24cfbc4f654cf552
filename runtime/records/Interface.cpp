#include "runtime/records/Interface.h"

#include "runtime/entity/TypeRegistry.h"

namespace Interface {

namespace {

// The two words of `text` around its last blank.
std::optional<std::pair<std::string_view, std::string_view>> twoWords(std::string_view text) {
  const auto blank = text.rfind(' ');
  if (blank == std::string_view::npos) return std::nullopt;
  return std::pair(text.substr(0, blank), text.substr(blank + 1));
}

}  // namespace

IntfStatus::Ptr IntfStatusPtrDir::intfStatus(const rt::IntfId& id) const {
  return intfStatus_.get(id);
}

IntfStatus::Ptr IntfStatusPtrDir::intfStatusIs(const rt::IntfId& id) {
  return instantiate<&IntfStatusPtrDir::intfStatus>(intfStatus_, id, id);
}

void IntfStatusPtrDir::intfStatusMount(const IntfStatus::Ptr& status) {
  mount<&IntfStatusPtrDir::intfStatus, &IntfStatus::intfId>(intfStatus_, status);
}

IntfStatus::Ptr IntfStatusPtrDir::intfStatusDel(const rt::IntfId& id) {
  return remove<&IntfStatusPtrDir::intfStatus>(intfStatus_, id);
}

void IntfStatusPtrDir::intfStatusDelAll() { removeAll<&IntfStatusPtrDir::intfStatus>(intfStatus_); }

rt::String IntfStatusLocal::text() const { return deviceName + " " + netNs.text(); }

std::optional<IntfStatusLocal> IntfStatusLocal::fromText(std::string_view text) {
  const auto words = twoWords(text);
  const auto netNs = words ? rt::NamespaceName::fromText(words->second) : std::nullopt;
  if (!netNs) return std::nullopt;
  return IntfStatusLocal{words->first, *netNs};
}

std::optional<IntfStatusLocal> AllIntfStatusLocalDir::intfStatusLocal(const rt::IntfId& id) const {
  const auto* local = intfStatusLocal_.find(id);
  return local ? std::optional(*local) : std::nullopt;
}

void AllIntfStatusLocalDir::intfStatusLocalIs(const rt::IntfId& id, const IntfStatusLocal& local) {
  store<&AllIntfStatusLocalDir::intfStatusLocal>(intfStatusLocal_, id, local);
}

void AllIntfStatusLocalDir::intfStatusLocalDel(const rt::IntfId& id) {
  remove<&AllIntfStatusLocalDir::intfStatusLocal>(intfStatusLocal_, id);
}

rt::String IntfStatusAndDeviceName::text() const { return deviceName + " " + rt::toText(ifIndex); }

std::optional<IntfStatusAndDeviceName> IntfStatusAndDeviceName::fromText(std::string_view text) {
  const auto words = twoWords(text);
  const auto ifIndex = words ? rt::fromText<uint32_t>(words->second) : std::nullopt;
  if (!ifIndex) return std::nullopt;
  return IntfStatusAndDeviceName{words->first, *ifIndex};
}

std::optional<IntfStatusAndDeviceName> DeviceIntfStatusDir::intfStatusAndDeviceName(
    const rt::IntfId& id) const {
  const auto* device = present_.find(id);
  return device ? std::optional(*device) : std::nullopt;
}

void DeviceIntfStatusDir::intfStatusAndDeviceNameIs(const rt::IntfId& id,
                                                    const IntfStatusAndDeviceName& device) {
  store<&DeviceIntfStatusDir::intfStatusAndDeviceName>(present_, id, device);
}

void DeviceIntfStatusDir::intfStatusAndDeviceNameDel(const rt::IntfId& id) {
  remove<&DeviceIntfStatusDir::intfStatusAndDeviceName>(present_, id);
}

namespace {

const rt::RegisteredTypes<IntfStatus, IntfStatusPtrDir, AllIntfStatusDir, AllIntfStatusLocalDir,
                          DeviceIntfStatusDir>
    registered;

}  // namespace

}  // namespace Interface
