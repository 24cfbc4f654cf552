// What one daemon alone may have.
#pragma once

#include <memory>
#include <vector>

#include "statedb/OwnerLock.h"
#include "statedb/OwnerSign.h"

namespace host {

// One daemon a run directory, one agent a directory of monitors, one daemon a state directory,
// though two had a /run each; and what shows others that it lives.
class Locks {
 public:
  // Takes the locks of the run directory and of the monitors'. Throws statedb::Error.
  explicit Locks(const rt::String& runDir);
  Locks(const Locks&) = delete;

  // Takes the lock of a directory; one that is held already is held once, by whatever name.
  void take(const rt::String& directory);

 private:
  std::vector<std::pair<rt::String, std::unique_ptr<statedb::OwnerLock>>> locks_;  // by directory
  std::unique_ptr<statedb::OwnerSign> sign_;
};

}  // namespace host
