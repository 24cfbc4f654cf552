// Intrusive reference counting.
#pragma once

#include <atomic>
#include <concepts>
#include <cstdint>
#include <utility>

namespace rt {

extern bool threadSafePtrsSwitch;
// Whether reference counts are changed atomically. One switch for the whole process, off at the
// start; set it before a second thread holds references.
inline bool threadSafePtrs() { return threadSafePtrsSwitch; }
void threadSafePtrsIs(bool on);

// What a Ptr can hold. Lives on the heap, made by make(); ends when its last reference goes.
class RefCounted {
 public:
  RefCounted(const RefCounted&) = delete;
  RefCounted& operator=(const RefCounted&) = delete;

  uint32_t references() const { return references_; }

 protected:
  RefCounted() = default;
  virtual ~RefCounted() = default;
  // Runs when the last reference has gone, and destroys the object. Until it does so, references
  // may be taken and released again.
  virtual void handleZeroReferences() { delete this; }

 private:
  template <class T>
  friend class Ptr;

  void acquire() {
    if (threadSafePtrsSwitch) [[unlikely]]
      std::atomic_ref(references_).fetch_add(1, std::memory_order_relaxed);
    else
      ++references_;
  }
  void release() {
    const uint32_t left =
        threadSafePtrsSwitch
            ? std::atomic_ref(references_).fetch_sub(1, std::memory_order_acq_rel) - 1
            : --references_;
    if (left != 0) return;
    references_ = 1;  // so that a reference taken on the way to the end does not start it again
    handleZeroReferences();
  }

  uint32_t references_ = 1;  // make()'s, so that a constructor may refer to its own object
};

// A counted reference, or null.
template <class T>
class Ptr {
 public:
  using Pointee = T;

  Ptr() = default;
  Ptr(std::nullptr_t) {}
  // One more reference to `object`, which may be null.
  explicit Ptr(T* object) : object_(object) {
    if (object_) counted()->acquire();
  }
  Ptr(const Ptr& other) : Ptr(other.object_) {}
  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  template <class U>
  requires std::convertible_to<U*, T*> Ptr(const Ptr<U>& other)
      : Ptr(static_cast<T*>(other.get())) {}
  Ptr& operator=(Ptr other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~Ptr() {
    if (object_) counted()->release();
  }

  T* get() const { return object_; }
  T& operator*() const { return *object_; }
  T* operator->() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }

  template <class U>
  friend bool operator==(const Ptr& a, const Ptr<U>& b) {
    return a.get() == b.get();
  }
  friend bool operator==(const Ptr& a, std::nullptr_t) { return a.object_ == nullptr; }

 private:
  template <class U, class... Args>
  friend Ptr<U> make(Args&&... args);

  RefCounted* counted() const {
    return const_cast<RefCounted*>(static_cast<const RefCounted*>(object_));
  }

  T* object_ = nullptr;
};

// A new T and its first reference.
template <class T, class... Args>
Ptr<T> make(Args&&... args) {
  Ptr<T> made;
  made.object_ = new T(std::forward<Args>(args)...);
  return made;
}

// `other` as a T; null when it is none.
template <class T, class U>
Ptr<T> ptrCast(const Ptr<U>& other) {
  return Ptr<T>(dynamic_cast<T*>(other.get()));
}

template <class T>
inline constexpr bool isPtr = false;
template <class T>
inline constexpr bool isPtr<Ptr<T>> = true;

}  // namespace rt
