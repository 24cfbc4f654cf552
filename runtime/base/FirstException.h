// Work whose steps all happen, whichever of them throws.
#pragma once

#include <exception>
#include <utility>

namespace rt {

// Runs steps and keeps the first exception of them for later; further ones are dropped.
class FirstException {
 public:
  template <class Step>
  void run(Step&& step) {
    try {
      std::forward<Step>(step)();
    } catch (...) {
      keep(std::current_exception());
    }
  }
  void keep(const std::exception_ptr& exception) {
    if (!first_) first_ = exception;
  }
  // Throws what was kept, if anything was.
  void rethrow() {
    if (first_) std::rethrow_exception(std::exchange(first_, nullptr));
  }

 private:
  std::exception_ptr first_;
};

}  // namespace rt
