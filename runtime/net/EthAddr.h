// MAC addresses.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>

#include "runtime/base/String.h"

namespace rt {

class EthAddr {
 public:
  using Bytes = std::array<uint8_t, 6>;
  static constexpr std::string_view typeName = "EthAddr";

  constexpr EthAddr() = default;  // 00:00:00:00:00:00
  constexpr explicit EthAddr(const Bytes& bytes) : bytes_(bytes) {}
  // RangeException, with the text in it, when `text` is no MAC address.
  explicit EthAddr(const String& text);
  // Six pairs of hexadecimal digits between colons or between dashes, or three groups of four
  // between dots; in either case of letters.
  static std::optional<EthAddr> fromText(std::string_view text);

  // Lower case, between colons.
  String text() const;
  const Bytes& bytes() const { return bytes_; }
  // One station's address; all zeros is none. Group addresses have the lowest bit of the first
  // byte set.
  bool isUnicast() const { return (bytes_[0] & 1U) == 0 && *this != EthAddr(); }

  friend bool operator==(const EthAddr&, const EthAddr&) = default;
  friend auto operator<=>(const EthAddr&, const EthAddr&) = default;

 private:
  Bytes bytes_{};
};

}  // namespace rt

template <>
struct std::hash<rt::EthAddr> {
  size_t operator()(const rt::EthAddr& address) const noexcept;
};
