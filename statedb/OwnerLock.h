// Who owns a directory: the one daemon that goes by it.
#pragma once

#include "runtime/base/Descriptor.h"
#include "runtime/base/String.h"
#include "statedb/Error.h"

namespace statedb {

// Held by this process for as long as this lives. The kernel releases it the moment the process
// ends, however it does: no child inherits it, not even before its exec. One a file and process:
// the second to end would release the first's.
//
// Whoever can open a file, if only to read it, can hold it locked. So the file is its owner's alone
// (mode 0600), and what shows others that we live is OwnerSign.
class OwnerLock {
 public:
  // Makes the file if need be and writes our process id into it, for people. What is no file of
  // ours alone, such as a link, makes room for one. Throws Error: `locked`, naming the holder, when
  // another process has it; the file's trouble otherwise.
  explicit OwnerLock(const rt::String& file);
  OwnerLock(const OwnerLock&) = delete;

 private:
  const rt::Descriptor descriptor_;
};

// The lock file of the daemon that owns what is in a directory.
rt::String ownerLockFile(const rt::String& directory);

}  // namespace statedb
