// What the guest wrote and no terminal has taken yet.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace shim {

// Keeps the newest bytes. A guest never waits for whoever looks at its console. Pure.
class PtyBacklog {
 public:
  static constexpr size_t capacity = 64 * 1024;

  // Whether all was kept; if not, the oldest bytes are gone, and what the terminal holds is older
  // still.
  bool add(std::string_view bytes);
  std::string_view waiting() const { return std::string_view(bytes_).substr(taken_); }
  void take(size_t count);

 private:
  std::string bytes_;
  size_t taken_ = 0;  // of the first bytes, which are removed now and then
};

}  // namespace shim
