// Ordered queues.
#pragma once

#include <cstdint>
#include <map>

#include "runtime/base/Exception.h"

namespace rt {

// First in, first out, of at most `capacity` entries, each under an index that only grows.
template <class T>
class OrderedQueue {
 public:
  using Index = uint32_t;
  using Key = Index;
  using Stored = T;

  // `name` is for the error of a full queue.
  OrderedQueue(const char* name, uint32_t capacity) : name_(name), capacity_(capacity) {}

  uint32_t size() const { return static_cast<uint32_t>(entries_.size()); }
  bool empty() const { return entries_.empty(); }
  // The front entry's index; when empty, the one that the next entry gets.
  Index frontIndex() const { return empty() ? nextIndex_ : entries_.begin()->first; }
  Index nextIndex() const { return nextIndex_; }

  // A default value where there is no entry.
  T front() const { return empty() ? T() : entries_.begin()->second; }
  T back() const { return empty() ? T() : entries_.rbegin()->second; }
  T at(Index index) const {
    const T* const entry = find(index);
    return entry ? *entry : T();
  }

  // Null where there is no entry.
  const T* find(Index index) const {
    const auto found = entries_.find(index);
    return found == entries_.end() ? nullptr : &found->second;
  }
  // Entries as (index, value), from the front; not to be changed meanwhile.
  auto begin() const { return entries_.begin(); }
  auto end() const { return entries_.end(); }

  // Adds at the back and returns the entry's index. QueueFullException when there is no room.
  Index enq(T value) {
    const Index index = nextIndex_;
    store(index, std::move(value));
    return index;
  }
  // Removes the front entry and returns it; a default value when empty.
  T deq() {
    if (empty()) return T();
    auto node = entries_.extract(entries_.begin());
    return std::move(node.mapped());
  }
  // The entry under `index` becomes `value`. QueueFullException as with enq().
  void store(Index index, T value) {
    if (const auto found = entries_.find(index); found != entries_.end()) {
      found->second = std::move(value);
      return;
    }
    if (size() >= capacity_) throw QueueFullException(name_, capacity_);
    entries_.emplace(index, std::move(value));
    if (index >= nextIndex_) nextIndex_ = index + 1;
  }
  // Whether there was an entry.
  bool remove(Index index) { return entries_.erase(index) != 0; }
  void clear() { entries_.clear(); }

 private:
  const char* name_;
  uint32_t capacity_;
  std::map<Index, T> entries_;
  Index nextIndex_ = 0;
};

}  // namespace rt
