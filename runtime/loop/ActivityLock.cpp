#include "runtime/loop/ActivityLock.h"

#include "runtime/base/Check.h"

namespace rt {

UnlockAnchor::UnlockAnchor(ActivityLock& lock) : lock_(lock) {
  check(lock.heldByThisThread(), "UnlockAnchor: this thread does not hold the activity lock");
  lock_.unlock();
}

}  // namespace rt
