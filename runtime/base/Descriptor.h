// Open files that belong to somebody.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <utility>
#include <vector>

namespace rt {

// Owns a descriptor: closes it once. Without one, its number is -1.
class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    reset(std::exchange(other.number_, -1));
    return *this;
  }
  ~Descriptor() { reset(); }

  int number() const { return number_; }
  explicit operator bool() const { return number_ >= 0; }
  // Leaves it to the caller, who hands it to another owner.
  int release() { return std::exchange(number_, -1); }
  void reset(int number = -1) {
    if (number_ >= 0) close(number_);
    number_ = number;
  }

 private:
  int number_;
};

// Another one of the same open file, which executed programs do not inherit; none when there can be
// no more, or of none.
inline Descriptor copyOf(const Descriptor& descriptor) {
  return Descriptor(fcntl(descriptor.number(), F_DUPFD_CLOEXEC, 0));
}

using Descriptors = std::vector<Descriptor>;

}  // namespace rt
