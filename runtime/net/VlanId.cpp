#include "runtime/net/VlanId.h"

#include "runtime/base/Exception.h"
#include "runtime/base/Text.h"

namespace Bridging {

namespace {

bool isValid(int64_t value) { return value >= 1 && value <= 4094; }

}  // namespace

VlanId::VlanId(int64_t value) {
  if (!isValid(value))
    throw rt::RangeException("Bridging::VlanId::value < 1 or > 4094 not allowed",
                             rt::toText(value));
  value_ = static_cast<uint16_t>(value);
}

std::optional<VlanId> VlanId::fromText(std::string_view text) {
  const auto value = rt::fromText<int64_t>(text);
  return value && isValid(*value) ? std::optional(VlanId(*value)) : std::nullopt;
}

rt::String VlanId::text() const { return rt::toText(value_); }

}  // namespace Bridging
