// Time on the runtime's clocks.
#pragma once

#include <compare>
#include <limits>
#include <ostream>

namespace rt {

// A number of seconds: a span of time, or a moment on a clock.
class Seconds {
 public:
  constexpr Seconds() = default;
  constexpr explicit Seconds(double value) : value_(value) {}
  static constexpr Seconds infinity() { return Seconds(std::numeric_limits<double>::infinity()); }

  constexpr double value() const { return value_; }

  friend constexpr Seconds operator+(Seconds a, Seconds b) { return Seconds(a.value_ + b.value_); }
  friend constexpr Seconds operator-(Seconds a, Seconds b) { return Seconds(a.value_ - b.value_); }
  friend constexpr bool operator==(Seconds, Seconds) = default;
  friend constexpr std::partial_ordering operator<=>(Seconds, Seconds) = default;
  friend std::ostream& operator<<(std::ostream& out, Seconds s) { return out << s.value_ << " s"; }

 private:
  double value_ = 0;
};

}  // namespace rt
