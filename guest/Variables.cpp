#include "guest/Variables.h"

namespace guest {

std::optional<Acceleration> accelerationFrom(std::string_view text) {
  if (text == "auto") return Acceleration::automatic;
  if (text == "kvm") return Acceleration::kvm;
  if (text == "tcg") return Acceleration::tcg;
  return std::nullopt;
}

}  // namespace guest
