// The switch's interfaces: which there are, and which kernel device each one is.
#pragma once

#include "runtime/entity/EntityOf.h"
#include "runtime/net/IntfId.h"
#include "runtime/net/NamespaceName.h"

namespace Interface {

// The status of one switch interface.
class IntfStatus final : public rt::EntityOf<IntfStatus> {
 public:
  explicit IntfStatus(rt::IntfId intfId) : intfId_(std::move(intfId)) {}

  const rt::IntfId& intfId() const { return intfId_; }

  // The interface's kernel device; empty while it has none.
  const rt::String& deviceName() const { return deviceName_; }
  void deviceNameIs(const rt::String& name) { assign<&IntfStatus::deviceName>(deviceName_, name); }

  static constexpr std::string_view typeName = "Interface::IntfStatus";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"intfId", &IntfStatus::intfId>,
      rt::Attribute<"deviceName", &IntfStatus::deviceName, &IntfStatus::deviceNameIs>>;

 private:
  const rt::IntfId intfId_;
  rt::String deviceName_;
};

// A directory of interface status records.
class IntfStatusPtrDir : public rt::EntityOf<IntfStatusPtrDir> {
 public:
  using IntfStatuses = rt::Collection<rt::IntfId, IntfStatus::Ptr>;

  const IntfStatuses& intfStatuses() const { return intfStatus_; }
  IntfStatus::Ptr intfStatus(const rt::IntfId& id) const;
  bool intfStatusHas(const rt::IntfId& id) const { return intfStatus_.has(id); }
  IntfStatus::Ptr intfStatusIs(const rt::IntfId& id);
  void intfStatusMount(const IntfStatus::Ptr& status);  // filled before it is told of
  IntfStatus::Ptr intfStatusDel(const rt::IntfId& id);
  void intfStatusDelAll();

  static constexpr std::string_view typeName = "Interface::IntfStatusPtrDir";
  using Attributes = rt::AttributeTable<rt::CollectionAttribute<
      "intfStatus", &IntfStatusPtrDir::intfStatus, &IntfStatusPtrDir::intfStatuses,
      &IntfStatusPtrDir::intfStatusMount, &IntfStatusPtrDir::intfStatusDel>>;

 private:
  IntfStatuses intfStatus_;
};

// All interfaces of the switch. Those with a kernel device are written by the interface-status
// managers.
class AllIntfStatusDir final : public rt::EntityOf<AllIntfStatusDir, IntfStatusPtrDir> {
 public:
  static constexpr std::string_view typeName = "Interface::AllIntfStatusDir";
};

// What this control plane knows of one interface: the name of its kernel device, whether there is
// one of that name or not. A plain value.
struct IntfStatusLocal {
  static constexpr std::string_view typeName = "Interface::IntfStatusLocal";

  rt::String deviceName;
  rt::NamespaceName netNs;  // the namespace the device belongs in

  rt::String text() const;  // "DEVICE NAMESPACE"
  static std::optional<IntfStatusLocal> fromText(std::string_view text);
  friend bool operator==(const IntfStatusLocal&, const IntfStatusLocal&) = default;
};

// Which kernel device each interface is. Written by the host.
class AllIntfStatusLocalDir final : public rt::EntityOf<AllIntfStatusLocalDir> {
 public:
  using IntfStatusLocals = rt::Collection<rt::IntfId, IntfStatusLocal>;

  const IntfStatusLocals& intfStatusLocals() const { return intfStatusLocal_; }
  std::optional<IntfStatusLocal> intfStatusLocal(const rt::IntfId& id) const;
  bool intfStatusLocalHas(const rt::IntfId& id) const { return intfStatusLocal_.has(id); }
  void intfStatusLocalIs(const rt::IntfId& id, const IntfStatusLocal& local);
  void intfStatusLocalDel(const rt::IntfId& id);

  static constexpr std::string_view typeName = "Interface::AllIntfStatusLocalDir";
  using Attributes = rt::AttributeTable<rt::CollectionAttribute<
      "intfStatusLocal", &AllIntfStatusLocalDir::intfStatusLocal,
      &AllIntfStatusLocalDir::intfStatusLocals, &AllIntfStatusLocalDir::intfStatusLocalIs,
      &AllIntfStatusLocalDir::intfStatusLocalDel>>;

 private:
  IntfStatusLocals intfStatusLocal_;
};

// The kernel device that is there for an interface. A plain value.
struct IntfStatusAndDeviceName {
  static constexpr std::string_view typeName = "Interface::IntfStatusAndDeviceName";

  rt::String deviceName;
  uint32_t ifIndex = 0;

  rt::String text() const;  // "DEVICE IFINDEX"
  static std::optional<IntfStatusAndDeviceName> fromText(std::string_view text);
  friend bool operator==(const IntfStatusAndDeviceName&, const IntfStatusAndDeviceName&) = default;
};

// The interfaces whose kernel device exists. Written by an interface-status manager, for one
// network namespace.
class DeviceIntfStatusDir final : public rt::EntityOf<DeviceIntfStatusDir> {
 public:
  using IntfStatusAndDeviceNames = rt::Collection<rt::IntfId, IntfStatusAndDeviceName>;

  const IntfStatusAndDeviceNames& intfStatusAndDeviceNames() const { return present_; }
  std::optional<IntfStatusAndDeviceName> intfStatusAndDeviceName(const rt::IntfId& id) const;
  bool intfStatusAndDeviceNameHas(const rt::IntfId& id) const { return present_.has(id); }
  void intfStatusAndDeviceNameIs(const rt::IntfId& id, const IntfStatusAndDeviceName& device);
  void intfStatusAndDeviceNameDel(const rt::IntfId& id);

  static constexpr std::string_view typeName = "Interface::DeviceIntfStatusDir";
  using Attributes =
      rt::AttributeTable<rt::CollectionAttribute<"intfStatusAndDeviceName",
                                                 &DeviceIntfStatusDir::intfStatusAndDeviceName,
                                                 &DeviceIntfStatusDir::intfStatusAndDeviceNames,
                                                 &DeviceIntfStatusDir::intfStatusAndDeviceNameIs,
                                                 &DeviceIntfStatusDir::intfStatusAndDeviceNameDel>>;

 private:
  IntfStatusAndDeviceNames present_;
};

}  // namespace Interface
