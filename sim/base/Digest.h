// Short numbers that stand for long histories.
#pragma once

#include <cstdint>
#include <string_view>

namespace sim {

// A number in which each bit of `value` has changed half of the bits.
constexpr uint64_t mixed(uint64_t value) {
  value += 0x9e3779b97f4a7c15;
  value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9;
  value = (value ^ (value >> 27)) * 0x94d049bb133111eb;
  return value ^ (value >> 31);
}

constexpr uint64_t digestOf(std::string_view text) {
  uint64_t digest = 0xcbf29ce484222325;
  for (const char c : text) digest = (digest ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  return digest;
}

// Of all that was added, in its order.
class Digest {
 public:
  void add(uint64_t value) { value_ = mixed(value_ ^ value); }
  void add(std::string_view text) { add(digestOf(text)); }
  uint64_t value() const { return value_; }

 private:
  uint64_t value_ = 0;
};

}  // namespace sim
