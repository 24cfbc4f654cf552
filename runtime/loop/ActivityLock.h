// The lock under which all handlers run.
#pragma once

#include <atomic>
#include <mutex>
#include <thread>

namespace rt {

// One per activity manager. Its loop holds it while handlers run, not while it waits. Other threads
// of the process may take it to read what handlers write; only the loop's thread writes. Fits
// std::lock_guard.
class ActivityLock {
 public:
  void lock() {
    mutex_.lock();
    holder_ = std::this_thread::get_id();
  }
  void unlock() {
    holder_ = std::thread::id();
    mutex_.unlock();
  }
  bool heldByThisThread() const { return holder_ == std::this_thread::get_id(); }

 private:
  std::mutex mutex_;
  std::atomic<std::thread::id> holder_;
};

// Releases the lock, which this thread holds, for its own lifetime, and takes it back after.
class UnlockAnchor {
 public:
  explicit UnlockAnchor(ActivityLock& lock);
  UnlockAnchor(const UnlockAnchor&) = delete;
  ~UnlockAnchor() { lock_.lock(); }

 private:
  ActivityLock& lock_;
};

}  // namespace rt
