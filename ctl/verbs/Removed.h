// The VMs that were removed last, which can be brought back.
#pragma once

#include <vector>

#include "ctl/line/Context.h"

namespace ctl {

constexpr size_t mostRemoved = 10;

struct RemovedVm {
  rt::String key;  // of its row
  uint64_t revision = 0;
  rt::String name;
  uint64_t at = 0;      // when it was removed, in seconds since 1970
  rt::String by;        // who removed it
  rt::String document;  // what there was of it
};

// The newest first. A row that is none of ours is left out.
std::vector<RemovedVm> removedVms(Context& context);

// Deletes all that was asked for of the VMs, and keeps what it was in the place of what was removed
// longest ago. Of more than mostRemoved at once the last of them are kept; one whose document would
// be longer than a row may be is not. The commit meets a conflict when another removes at the same
// time.
void removeVms(Context& context, statedb::Transaction& transaction,
               const std::vector<rt::String>& names);

}  // namespace ctl
