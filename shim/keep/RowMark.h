// Which row of which store the guest's VM is of, for the daemon that comes next.
#pragma once

#include <cstddef>

#include "shim/decide/ControlText.h"

namespace shim {

// The two variables of this process that name its row, which its daemon gave it at its start. A
// daemon that finds the guest reads them in /proc/PID/environ: they are there as long as the
// process is, whatever became of any file, and nobody but root writes them. A daemon that has taken
// the guest up under another row says so.
class RowMark {
 public:
  RowMark();

  // Writes over what stands there; whoever reads meanwhile finds the one, the other, or no row.
  // False when there is too little room, as in a process that was told of no row.
  bool rowIs(const control::Row& row) const;

 private:
  // A variable's value, in the memory that the kernel shows.
  struct Place {
    volatile char* begin = nullptr;
    size_t size = 0;
  };
  static Place placeOf(const char* name);
  static void write(const Place& place, const std::string& text, size_t from);

  Place store_;
  Place row_;
};

}  // namespace shim
