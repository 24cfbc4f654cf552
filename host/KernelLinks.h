// The kernel's network devices, followed.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "host/InterfaceNames.h"
#include "runtime/loop/FileDescriptor.h"
#include "runtime/records/KernelNetInfo.h"

namespace host {

// A device, as far as we care.
struct KernelLink {
  rt::String name;
  bool canBeInterface = false;  // of the switch: neither the loopback nor a macvtap

  friend bool operator==(const KernelLink&, const KernelLink&) = default;
};
using KernelLinkTable = std::map<uint32_t, KernelLink>;  // by ifindex

// Where the devices come from: rtnetlink, by libnl's cache.
class KernelLinkSource {
 public:
  KernelLinkSource();  // throws Exception when the kernel does not answer
  KernelLinkSource(const KernelLinkSource&) = delete;
  ~KernelLinkSource();

  // Readable: read() may find changes. A new one, the caller's to close.
  int descriptor() const;
  // All devices there are now. What was lost, because the kernel told faster than we listened, is
  // asked for anew.
  KernelLinkTable read();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Keeps the kernel's devices in the network information, and their names as interfaces.
class KernelLinks final : public rt::StateMachineOf<KernelLinks> {
 public:
  KernelLinks(KernelNetInfo::Status::Ptr status, InterfaceNames::Ptr names);

  static constexpr std::string_view typeName = "host::KernelLinks";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &KernelLinks::initialized>>;

 private:
  void handleInitialized();
  void handleReadable();
  void withdraw(uint32_t ifIndex, const KernelLink& link);
  void present(uint32_t ifIndex, const KernelLink& link);

  KernelLinkSource source_;
  const KernelNetInfo::Status::Ptr status_;
  const InterfaceNames::Ptr names_;
  KernelLinkTable links_;

  rt::Reactor<KernelLinks, rt::FileDescriptor,
              rt::On<&rt::FileDescriptor::readable, &KernelLinks::handleReadable>>
      descriptor_;
};

}  // namespace host
