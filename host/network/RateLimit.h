// How much a card's device sends of what its guest gives it.
#pragma once

#include <functional>
#include <map>

#include "runtime/base/String.h"
#include "runtime/net/EthAddr.h"

namespace host {

// Has a device drop what is more than it may send.
class RateLimiter {
 public:
  virtual ~RateLimiter() = default;
  // Has it send so many millions of bits a second; 0: all. Returns why that cannot be; empty: it is
  // so. What others have set there stays where ours was not.
  virtual rt::String set(uint32_t device, uint32_t megabits) = 0;
};

// By a token bucket as the device's queue (tbf). It goes with the device, and stays when the daemon
// ends.
class KernelRateLimiter final : public RateLimiter {
 public:
  rt::String set(uint32_t device, uint32_t megabits) override;
};

// Sets it on the devices of our cards as they come, and when it is to be another.
class RateGuard {
 public:
  // `rateOf`: what the card of that address may send; 0: all, or it is none of ours. `limiter`
  // outlives it.
  RateGuard(RateLimiter& limiter, std::function<uint32_t(rt::EthAddr)> rateOf);

  // A macvtap device is there, or has another address.
  void deviceIs(uint32_t device, const rt::String& name, rt::EthAddr address);
  // It is gone.
  void deviceDel(uint32_t device) { devices_.erase(device); }
  // Rates may be others.
  void ratesAre();

 private:
  struct Device {
    rt::String name;
    rt::EthAddr address;
    uint32_t rate = 0;
  };

  bool set(uint32_t number, Device& device);

  RateLimiter& limiter_;
  const std::function<uint32_t(rt::EthAddr)> rateOf_;
  std::map<uint32_t, Device> devices_;
  rt::String complaint_;  // the last, so that the same is said once
};

}  // namespace host
