// The kernel's network devices, as records.
#pragma once

#include <functional>
#include <map>
#include <optional>

#include "host/network/InterfaceNames.h"
#include "runtime/net/EthAddr.h"
#include "runtime/records/KernelNetInfo.h"

namespace host {

// A device, as far as we care.
struct KernelLink {
  rt::String name;
  bool canBeInterface = false;  // of the switch: neither the loopback nor a macvtap
  // How many devices had its index before it, since nothing had. So one that was made anew between
  // two looks, with the old one's name and index, is another.
  uint32_t before = 0;
  std::optional<rt::EthAddr> macvtap{};  // its address; nothing: it is of another kind
  bool hasCarrier = false;               // which comes and goes

  bool isSameDevice(const KernelLink& other) const {
    return name == other.name && canBeInterface == other.canBeInterface && before == other.before &&
           macvtap == other.macvtap;
  }
  friend bool operator==(const KernelLink&, const KernelLink&) = default;
};
using KernelLinkTable = std::map<uint32_t, KernelLink>;  // by ifindex

// Keeps the network information, and the devices' names as interfaces, as the kernel's table is.
// Owned by KernelLinks, which reads that.
class LinkRecords {
 public:
  // Is told of each macvtap device that is there, or is another than it was, and before that of
  // each that is not any more.
  struct MacvtapSink {
    std::function<void(uint32_t ifIndex, const rt::String& name, rt::EthAddr address)> deviceIs;
    std::function<void(uint32_t ifIndex)> deviceDel;
  };

  LinkRecords(KernelNetInfo::Status::Ptr status, InterfaceNames::Ptr names, MacvtapSink macvtap)
      : status_(std::move(status)), names_(std::move(names)), macvtap_(std::move(macvtap)) {}

  // All devices there are now. What is gone is told first: a name may have passed to another
  // device. Whoever hears of one may throw; all others are told of, and the first exception passes
  // through at the end.
  void linksAre(const KernelLinkTable& now);

 private:
  void withdraw(uint32_t ifIndex, const KernelLink& link);
  void present(uint32_t ifIndex, const KernelLink& link);

  const KernelNetInfo::Status::Ptr status_;
  const InterfaceNames::Ptr names_;
  const MacvtapSink macvtap_;
  KernelLinkTable links_;
};

}  // namespace host
