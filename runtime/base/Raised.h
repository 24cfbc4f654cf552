// A flag that is up for as long as a block runs.
#pragma once

namespace rt {

// Sets `flag` for its lifetime, also when the block ends by an exception.
class Raised {
 public:
  explicit Raised(bool& flag) : flag_(flag) { flag_ = true; }
  Raised(const Raised&) = delete;
  ~Raised() { flag_ = false; }

 private:
  bool& flag_;
};

}  // namespace rt
