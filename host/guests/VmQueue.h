// VMs whose keepers have something to do.
#pragma once

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
    if (queued_.insert(vm).second) queue_.push_back(vm);
  }
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
};

}  // namespace host
