#include <utility>

#include "host/base/Report.h"
#include "host/network/SenderFilter.h"

namespace host {

SenderGuard::SenderGuard(SenderFilter& filter, std::function<bool(rt::EthAddr)> isOurs)
    : filter_(filter), isOurs_(std::move(isOurs)) {}

void SenderGuard::deviceIs(uint32_t device, const rt::String& name, rt::EthAddr address) {
  if (!isOurs_(address)) return;
  const rt::String failure = filter_.set(device, address);
  if (std::exchange(complaint_, failure) != failure && !failure.empty())
    report(name +
           ": its guest may send under any address, for that cannot be forbidden: " + failure);
}

}  // namespace host
