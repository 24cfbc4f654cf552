// What the agent did to the world, in order, over all fakes.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace Vm::fakes {

class EffectLog {
 public:
  void add(std::string effect) { effects_.push_back(std::move(effect)); }
  // What was done since the last call.
  std::vector<std::string> take() { return std::exchange(effects_, {}); }

 private:
  std::vector<std::string> effects_;
};

}  // namespace Vm::fakes
