#include "host/database/Locks.h"

#include <sys/stat.h>

#include <algorithm>

#include "guest/VmFiles.h"

namespace host {

namespace {

bool isSameDirectory(const rt::String& a, const rt::String& b) {
  struct stat one {};
  struct stat other {};
  return stat(a.charPtr(), &one) == 0 && stat(b.charPtr(), &other) == 0 &&
         one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

}  // namespace

Locks::Locks(const rt::String& runDir) {
  take(runDir);
  take(guest::monitorsDirectory);
  sign_ = std::make_unique<statedb::OwnerSign>(runDir);
}

void Locks::take(const rt::String& directory) {
  const bool isHeld = std::any_of(locks_.begin(), locks_.end(), [&](const auto& lock) {
    return isSameDirectory(lock.first, directory);
  });
  if (isHeld) return;
  locks_.emplace_back(directory,
                      std::make_unique<statedb::OwnerLock>(statedb::ownerLockFile(directory)));
}

}  // namespace host
