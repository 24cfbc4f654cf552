// The kernel's network devices.
#pragma once

#include "runtime/entity/EntityOf.h"
#include "runtime/net/NamespaceName.h"

namespace KernelNetInfo {

// Which device: the kernel numbers them per network namespace. A plain value.
struct InterfaceKey {
  static constexpr std::string_view typeName = "KernelNetInfo::InterfaceKey";

  rt::NamespaceName netNs;
  uint32_t ifIndex = 0;

  rt::String text() const;  // "NAMESPACE/IFINDEX"
  static std::optional<InterfaceKey> fromText(std::string_view text);
  friend bool operator==(const InterfaceKey&, const InterfaceKey&) = default;
  friend auto operator<=>(const InterfaceKey&, const InterfaceKey&) = default;
};

// The devices there are, by key; the value is the device's name. Written by the host.
class Status final : public rt::EntityOf<Status> {
 public:
  using Interfaces = rt::Collection<InterfaceKey, rt::String>;

  const Interfaces& interfaces() const { return interface_; }
  // Empty when there is none.
  rt::String interface(const InterfaceKey& key) const { return interface_.get(key); }
  bool interfaceHas(const InterfaceKey& key) const { return interface_.has(key); }
  void interfaceIs(const InterfaceKey& key, const rt::String& deviceName);
  void interfaceDel(const InterfaceKey& key);

  static constexpr std::string_view typeName = "KernelNetInfo::Status";
  using Attributes = rt::AttributeTable<
      rt::CollectionAttribute<"interface", &Status::interface, &Status::interfaces,
                              &Status::interfaceIs, &Status::interfaceDel>>;

 private:
  Interfaces interface_;
};

}  // namespace KernelNetInfo
