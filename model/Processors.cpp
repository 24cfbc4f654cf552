#include "model/Processors.h"

#include <algorithm>

#include "runtime/base/Text.h"

namespace model {

namespace {

constexpr uint32_t most = 1'000'000;
constexpr size_t places = 2;

bool isNumber(std::string_view text) {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

std::optional<Processors> Processors::fromText(std::string_view text) {
  const size_t point = text.find('.');
  const std::string_view whole = text.substr(0, point);
  rt::String part = point == std::string_view::npos ? "0" : text.substr(point + 1);
  if (!isNumber(whole) || !isNumber(part) || part.size() > places) return std::nullopt;
  if (part.size() < places) part += '0';
  const auto number = rt::fromText<uint32_t>(whole);
  if (!number || *number > most) return std::nullopt;
  return Processors(*number * parts + rt::fromText<uint32_t>(part).value_or(0));
}

rt::String Processors::text() const {
  rt::String whole = rt::toText(hundredths_ / parts);
  const uint32_t part = hundredths_ % parts;
  if (part == 0) return whole;
  const rt::String digits = rt::format("%02u", part);
  return whole + "." + (part % 10 == 0 ? digits.substr(0, 1) : digits);
}

}  // namespace model
