// What ends a shim before its QEMU runs.
#pragma once

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace shim {

// A sentence for an operator.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// "WHAT: the reason of errno".
inline Failure failureOf(const std::string& what) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the shim has one thread
  return Failure(what + ": " + std::strerror(errno));
}

}  // namespace shim
