// VMs whose keepers have something to do.
#pragma once

#include <cstdint>
#include <deque>
#include <set>
#include <utility>

#include "runtime/base/String.h"

namespace host {

// In the order in which they were noted, each once. Owned by the supervisor, which empties it;
// keepers note themselves.
class VmQueue {
 public:
  void note(const rt::String& vm) {
    if (!queued_.insert(vm).second) return;
    queue_.push_back(vm);
    ++noted_;
  }
  // How many were noted, and how many of them taken out, until now: in that order.
  uint64_t noted() const { return noted_; }
  uint64_t taken() const { return noted_ - queue_.size(); }
  size_t size() const { return queue_.size(); }
  // Takes the first out; there must be one.
  rt::String next() {
    rt::String vm = std::move(queue_.front());
    queue_.pop_front();
    queued_.erase(vm);
    return vm;
  }

 private:
  std::deque<rt::String> queue_;
  std::set<rt::String> queued_;  // the same
  uint64_t noted_ = 0;
};

}  // namespace host
