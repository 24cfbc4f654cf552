// Keyed collections.
#pragma once

#include <iterator>
#include <map>
#include <memory>
#include <type_traits>
#include <utility>

#include "runtime/entity/Ptr.h"

namespace rt {

// Members by key, in key order. `Stored` is a Ptr to an entity or a plain value. Changed only by
// the owner's mutators, walked by anybody:
//
//   for (const auto& [name, vm] : config->vmConfigs()) ...
//
// A walk visits every member once. Meanwhile any member may be added or removed, the one it stands
// at too, and the whole collection may end, which ends the walk; the member it stands at stays
// alive until the walk steps on.
template <class K, class S>
class Collection {
 public:
  using Key = K;
  using Stored = S;
  using Map = std::map<K, S>;
  class Walk;

  Collection() = default;
  Collection(const Collection&) = delete;
  ~Collection() {
    for (Walk* walk = walks_; walk; walk = walk->outer_) {
      if (walk->entry_ && !walk->gone_) extract(members_.find(walk->entry_->first));
      walk->collection_ = nullptr;
    }
  }

  size_t size() const { return members_.size(); }
  bool empty() const { return members_.empty(); }
  bool has(const K& key) const { return members_.contains(key); }
  // Null when there is none.
  const S* find(const K& key) const {
    const auto at = members_.find(key);
    return at == members_.end() ? nullptr : &at->second;
  }

  // A copy, or a default value (null) when there is none.
  S get(const K& key) const {
    const S* const member = find(key);
    return member ? *member : S();
  }

  Walk begin() const { return Walk(*this); }
  std::default_sentinel_t end() const { return {}; }

 private:
  template <class T, class Base>
  friend class EntityOf;
  using At = typename Map::iterator;
  using Node = typename Map::node_type;

  // Takes the member out; it lives as long as the node is held.
  std::shared_ptr<Node> extract(At at) {
    const At next = std::next(at);
    for (Walk* walk = walks_; walk; walk = walk->outer_)
      if (walk->at_ == at) walk->at_ = next;
    auto node = std::make_shared<Node>();
    for (Walk* walk = walks_; walk; walk = walk->outer_)
      if (walk->entry_ == &*at) walk->gone_ = node;
    *node = members_.extract(at);
    return node;
  }

  mutable Map members_;
  mutable Walk* walks_ = nullptr;  // those under way, the innermost first
};

// Where a walk is. Walks of one collection end in the reverse order of their beginning, as loops
// do.
//
// g++ 12, optimizing, takes a walk in its collection's list for dangling; its destructor takes it
// out.
#if !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdangling-pointer"
#endif
template <class K, class S>
class Collection<K, S>::Walk {
 public:
  using Entry = typename Map::value_type;

  explicit Walk(const Collection& collection)
      : collection_(&collection), at_(collection.members_.begin()), outer_(collection.walks_) {
    collection.walks_ = this;
    step();
  }
  Walk(const Walk&) = delete;
  ~Walk() {
    if (collection_) collection_->walks_ = outer_;
  }

  const Entry& operator*() const { return *entry_; }
  Walk& operator++() {
    step();
    return *this;
  }
  bool operator==(std::default_sentinel_t) const { return entry_ == nullptr; }

 private:
  friend class Collection;

  void step() {
    entry_ = nullptr;  // the end of a removed member may end the collection
    gone_.reset();
    if (collection_ && at_ != collection_->members_.end()) entry_ = &*at_++;
  }

  const Collection* collection_;
  At at_;                         // the member after this one
  const Entry* entry_ = nullptr;  // the member it stands at
  std::shared_ptr<Node> gone_;    // keeps that member alive once it was removed
  Walk* outer_;
};
#if !defined(__clang__)
#pragma GCC diagnostic pop
#endif

}  // namespace rt
