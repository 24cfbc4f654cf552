// What tests of the interface-status manager start from.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "runtime/interfaces/NetNsIntfStatusManager.h"

namespace Interface {

// Notes each change of either directory, and what both say at that time: "Vlan1: listed, present as
// eth0 2", or "not listed" and "absent". Then calls `then`.
class PresenceObserver final : public rt::StateMachineOf<PresenceObserver> {
 public:
  PresenceObserver(IntfStatusPtrDir::Ptr all, DeviceIntfStatusDir::Ptr devices)
      : all_(*this, std::move(all)), devices_(*this, std::move(devices)) {}

  std::function<void(const rt::IntfId&)> then;

  std::vector<std::string> take() { return std::exchange(notes_, {}); }

  static constexpr std::string_view typeName = "PresenceObserver";
  using Attributes =
      rt::AttributeTable<rt::Attribute<"initialized", &PresenceObserver::initialized>>;

 private:
  void handleChange(const rt::IntfId& id) {
    const auto status = all_->intfStatus(id);
    const auto device = devices_->intfStatusAndDeviceName(id);
    rt::String note = id.name() + ": ";
    note += status ? "listed, " : "not listed, ";
    note += device ? "present as " + device->text() : "absent";
    notes_.push_back(note.str());
    if (then) then(id);
  }

  std::vector<std::string> notes_;
  rt::Reactor<PresenceObserver, IntfStatusPtrDir,
              rt::On<&IntfStatusPtrDir::intfStatus, &PresenceObserver::handleChange>>
      all_;
  rt::Reactor<
      PresenceObserver, DeviceIntfStatusDir,
      rt::On<&DeviceIntfStatusDir::intfStatusAndDeviceName, &PresenceObserver::handleChange>>
      devices_;
};

class NetNsIntfStatusFixture : public testing::Test {
 protected:
  const AllIntfStatusDir::Ptr all = rt::make<AllIntfStatusDir>();
  const AllIntfStatusLocalDir::Ptr locals = rt::make<AllIntfStatusLocalDir>();
  const DeviceIntfStatusDir::Ptr devices = rt::make<DeviceIntfStatusDir>();
  const KernelNetInfo::Status::Ptr kernel = rt::make<KernelNetInfo::Status>();
  const rt::Ptr<PresenceObserver> observer = rt::make<PresenceObserver>(all, devices);
  NetNsIntfStatusManagerRoot::Ptr root =
      rt::make<NetNsIntfStatusManagerRoot>(all, locals, /*filterByNetNs=*/false);

  NetNsIntfStatusManager::Ptr start() { return root->intfStatusManagerIs(devices, kernel, {}); }
  void kernelHas(uint32_t ifIndex, const char* device) {
    kernel->interfaceIs({{}, ifIndex}, device);
  }
  void kernelLoses(uint32_t ifIndex) { kernel->interfaceDel({{}, ifIndex}); }
  void isNamed(const rt::IntfId& id, const char* device, const rt::NamespaceName& netNs = {}) {
    locals->intfStatusLocalIs(id, {device, netNs});
  }
  // What both directories say of an interface now: "eth0 2", or "" when neither has it.
  std::string present(const rt::IntfId& id) const {
    const auto status = all->intfStatus(id);
    const auto device = devices->intfStatusAndDeviceName(id);
    if (!status && !device) return "";
    if (!status) return "present but not listed";
    if (!device) return "listed but absent";
    if (status->deviceName() != device->deviceName) return "listed as another device";
    return device->text().str();
  }
};

inline const rt::IntfId one("Vlan1");
inline const rt::IntfId two("Vlan2");

// Removed, and replaced by another device: what is noted of Vlan1 then.
inline testing::Matcher<std::vector<std::string>> gone() {
  return testing::ElementsAre("Vlan1: listed, absent", "Vlan1: not listed, absent");
}
inline testing::Matcher<std::vector<std::string>> replacedBy(const std::string& device) {
  return testing::ElementsAre("Vlan1: listed, absent", "Vlan1: not listed, absent",
                              "Vlan1: listed, absent", "Vlan1: listed, present as " + device);
}

}  // namespace Interface
