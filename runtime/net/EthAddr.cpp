#include "runtime/net/EthAddr.h"

#include <charconv>

#include "runtime/base/Exception.h"
#include "runtime/base/Format.h"

namespace rt {

namespace {

// `text` as groups of `digits` hexadecimal digits with `separator` between them.
std::optional<EthAddr> parse(std::string_view text, char separator, size_t digits) {
  const size_t groups = 12 / digits;
  if (text.size() != groups * (digits + 1) - 1) return std::nullopt;
  EthAddr::Bytes bytes{};
  size_t at = 0;
  for (size_t i = 0; i < bytes.size(); ++i) {
    const char* const pair = text.data() + at;
    const auto [end, error] = std::from_chars(pair, pair + 2, bytes[i], 16);
    if (error != std::errc() || end != pair + 2) return std::nullopt;
    at += 2;
    const bool groupEnds = (i + 1) * 2 % digits == 0;
    if (groupEnds && at < text.size() && text[at++] != separator) return std::nullopt;
  }
  return EthAddr(bytes);
}

}  // namespace

EthAddr::EthAddr(const String& text) {
  const auto parsed = fromText(text);
  if (!parsed) throw RangeException("EthAddr: '" + text + "' is no MAC address", text);
  *this = *parsed;
}

std::optional<EthAddr> EthAddr::fromText(std::string_view text) {
  for (const char separator : {':', '-'})
    if (const auto address = parse(text, separator, 2)) return address;
  return parse(text, '.', 4);
}

String EthAddr::text() const {
  return format("%02x:%02x:%02x:%02x:%02x:%02x", bytes_[0], bytes_[1], bytes_[2], bytes_[3],
                bytes_[4], bytes_[5]);
}

}  // namespace rt

size_t std::hash<rt::EthAddr>::operator()(const rt::EthAddr& address) const noexcept {
  uint64_t number = 0;
  for (const uint8_t byte : address.bytes()) number = number << 8 | byte;
  return std::hash<uint64_t>()(number);
}
