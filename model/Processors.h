// A number of processors, or parts of one.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "runtime/base/String.h"

namespace model {

// In hundredths of a processor.
class Processors {
 public:
  static constexpr std::string_view typeName = "model::Processors";
  static constexpr uint32_t parts = 100;  // of one

  constexpr Processors() = default;  // none
  constexpr explicit Processors(uint32_t hundredths) : hundredths_(hundredths) {}
  // "2", "1.5" or "0.25"; nothing for what is no such number, or more than a million.
  static std::optional<Processors> fromText(std::string_view text);

  constexpr uint32_t hundredths() const { return hundredths_; }
  rt::String text() const;

  friend constexpr bool operator==(const Processors&, const Processors&) = default;
  friend constexpr auto operator<=>(const Processors&, const Processors&) = default;

 private:
  uint32_t hundredths_ = 0;
};

}  // namespace model
