#include <iterator>
#include <utility>

#include "host/base/Report.h"
#include "host/network/RateLimit.h"

namespace host {

RateGuard::RateGuard(RateLimiter& limiter, std::function<uint32_t(rt::EthAddr)> rateOf)
    : limiter_(limiter), rateOf_(std::move(rateOf)) {}

// An earlier daemon may have limited it.
void RateGuard::deviceIs(uint32_t device, const rt::String& name, rt::EthAddr address) {
  Device& known = devices_[device] = {name, address, rateOf_(address)};
  if (!set(device, known)) devices_.erase(device);
}

// One that is gone, and was not told of yet, is noticed here.
void RateGuard::ratesAre() {
  for (auto at = devices_.begin(); at != devices_.end();) {
    auto& [number, device] = *at;
    const uint32_t rate = rateOf_(device.address);
    const bool isOther = std::exchange(device.rate, rate) != rate;
    at = isOther && !set(number, device) ? devices_.erase(at) : std::next(at);
  }
}

bool RateGuard::set(uint32_t number, Device& device) {
  const rt::String failure = limiter_.set(number, device.rate);
  if (std::exchange(complaint_, failure) != failure && !failure.empty())
    report(device.name + ": its guest may send without limit: " + failure);
  return failure.empty();
}

}  // namespace host
