// The control group that QEMU is born in.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "runtime/base/Descriptor.h"

namespace shim {

// Made by the daemon, with what QEMU may take; its files are held open, for whoever has no right
// any more. QEMU has none of them.
class GuestGroup {
 public:
  // `path`: of its directory; empty: there is none, and QEMU is born where its shim is. Throws
  // Failure.
  explicit GuestGroup(const std::string& path);

  // Makes a process that is in it from its first instruction on: as fork(). Throws Failure.
  pid_t fork() const;

  // Ends what QEMU has left there: processes that a guest who took it over had it make. To be
  // called once QEMU has ended.
  void endRest() const;

  // What came of QEMU's memory.
  struct Memory {
    uint64_t limit = 0;       // mebibytes
    uint64_t peak = 0;        // likewise; 0: the kernel does not say
    bool wasTooMuch = false;  // the kernel ended it for that
  };
  // Of a QEMU that has ended; nothing: it was in no group of its own.
  std::optional<Memory> memory() const;

 private:
  uint64_t kills() const;

  rt::Descriptor directory_;
  rt::Descriptor events_;
  rt::Descriptor limit_;
  rt::Descriptor peak_;
  rt::Descriptor kill_;
  uint64_t killsBefore_ = 0;
};

}  // namespace shim
