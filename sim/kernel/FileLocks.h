// The locks on one file, of both kinds that the kernel has.
#pragma once

#include <fcntl.h>
#include <sys/types.h>

#include <optional>
#include <vector>

#include "sim/kernel/WaitQueue.h"

namespace sim {

class File;
class Process;

// The first kind belongs to a process, and goes with the first of its descriptors of that file that
// it closes. The second belongs to an open file.
class FileLocks {
 public:
  struct Range {
    off_t begin = 0;
    off_t end = 0;  // behind the last byte
    short type = F_UNLCK;
    const Process* owner = nullptr;
  };

  // Who stands in the way of that.
  std::optional<Range> conflict(const Range& wanted) const;
  // Takes it, or with F_UNLCK gives it back; nobody stands in the way.
  void set(const Range& wanted);
  void drop(const Process& owner);

  // LOCK_EX or LOCK_SH; whether it was got.
  bool take(const File& owner, int kind);
  void drop(const File& owner);

  WaitQueue freed;

 private:
  struct Holder {
    const File* file;
    int kind;
  };
  std::vector<Range> ranges_;
  std::vector<Holder> holders_;
};

}  // namespace sim
