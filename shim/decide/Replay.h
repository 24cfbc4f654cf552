// The newest of what the guest wrote.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace shim {

// For viewers who come late. Pure.
class Replay {
 public:
  static constexpr size_t capacity = 64 * 1024;

  void add(std::string_view bytes);
  // At most `capacity` bytes.
  std::string_view newest() const;

 private:
  std::string bytes_;  // at most twice the capacity, so that few are moved often
};

}  // namespace shim
