// What a card's device lets through of what its guest sends.
#pragma once

#include <functional>

#include "runtime/base/String.h"
#include "runtime/net/EthAddr.h"

namespace host {

// Has macvtap devices drop each frame whose sender is not the address that is given. So a guest can
// neither take another station's place nor have the switch learn addresses that are not its own.
class SenderFilter {
 public:
  virtual ~SenderFilter() = default;
  // Sets it on the device of that index, in place of one that was set before. Returns why it could
  // not be; empty: it is set.
  virtual rt::String set(uint32_t device, rt::EthAddr sender) = 0;
};

// By a program of a few instructions at the device's way out (clsact, cls_bpf). It goes with the
// device, and stays when the daemon ends.
class KernelSenderFilter final : public SenderFilter {
 public:
  rt::String set(uint32_t device, rt::EthAddr sender) override;
};

// Sets it on the devices of our cards as they come.
class SenderGuard {
 public:
  // `isOurs`: whether a card that is configured has that address. `filter` outlives it.
  SenderGuard(SenderFilter& filter, std::function<bool(rt::EthAddr)> isOurs);

  // A macvtap device is there, or has another address.
  void deviceIs(uint32_t device, const rt::String& name, rt::EthAddr address);

 private:
  SenderFilter& filter_;
  const std::function<bool(rt::EthAddr)> isOurs_;
  rt::String complaint_;  // the last, so that the same is said once
};

}  // namespace host
