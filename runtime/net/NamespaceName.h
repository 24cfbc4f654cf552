// Network namespace names.
#pragma once

#include <compare>
#include <optional>

#include "runtime/base/String.h"

namespace rt {

class NamespaceName {
 public:
  static constexpr std::string_view typeName = "NamespaceName";

  // The default namespace: the one that the process itself is in.
  NamespaceName() : text_("default") {}
  explicit NamespaceName(String text) : text_(std::move(text)) {}
  static NamespaceName defaultNamespace() { return {}; }
  // Nothing for empty text.
  static std::optional<NamespaceName> fromText(std::string_view text) {
    return text.empty() ? std::nullopt : std::optional(NamespaceName(String(text)));
  }

  String text() const { return text_; }

  friend bool operator==(const NamespaceName&, const NamespaceName&) = default;
  friend auto operator<=>(const NamespaceName&, const NamespaceName&) = default;

 private:
  String text_;
};

}  // namespace rt
