// Switch interface identifiers.
#pragma once

#include <compare>
#include <optional>

#include "runtime/base/String.h"

namespace rt {

// Names an interface of the switch, such as "Vlan100" or "Ethernet1". Any text is one; it is kept
// as it is.
class IntfId {
 public:
  static constexpr std::string_view typeName = "IntfId";

  IntfId() = default;
  explicit IntfId(String text) : text_(std::move(text)) {}
  static std::optional<IntfId> fromText(std::string_view text) { return IntfId(String(text)); }

  const String& name() const { return text_; }
  String text() const { return text_; }

  friend bool operator==(const IntfId&, const IntfId&) = default;
  friend auto operator<=>(const IntfId&, const IntfId&) = default;

 private:
  String text_;
};

}  // namespace rt

template <>
struct std::hash<rt::IntfId> {
  size_t operator()(const rt::IntfId& id) const noexcept {
    return std::hash<rt::String>()(id.name());
  }
};
