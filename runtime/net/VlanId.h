// VLAN numbers.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>

#include "runtime/base/String.h"

namespace Bridging {

// 1 to 4094.
class VlanId {
 public:
  static constexpr std::string_view typeName = "Bridging::VlanId";

  VlanId() = default;  // 1
  // RangeException for a number outside 1 to 4094, of whatever width it is.
  explicit VlanId(int64_t value);
  // Nothing unless `text` is such a number in decimal digits.
  static std::optional<VlanId> fromText(std::string_view text);

  uint16_t value() const { return value_; }
  rt::String text() const;

  friend bool operator==(const VlanId&, const VlanId&) = default;
  friend auto operator<=>(const VlanId&, const VlanId&) = default;

 private:
  uint16_t value_ = 1;
};

}  // namespace Bridging
