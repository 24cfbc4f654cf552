// Virtual machines as documents and as tables.
#pragma once

#include <set>

#include "ctl/view/VmRows.h"

namespace ctl {

// The members of its object: "name":..., those of stateJson(), "config":...,"format":...,
// "status":...,"process":...,"problem":...
rt::String vmJson(const VmRow& row);

// When a table is made, and for how much room.
struct Now {
  uint64_t time = 0;  // seconds since 1970
  bool isNarrow = false;
};
Now nowFor(Context& context);
// The headers only, and a row for it.
Table vmTable(Format format);
std::vector<Cell> vmCells(const VmRow& row, Format format, const Now& now);
// A row for a VM of which nothing is left.
std::vector<Cell> goneCells(const rt::String& name, Format format);
// One VM, a fact a line. `present`: the interfaces that are there, if that is known; `screen`: the
// socket that the guest's screen is on, empty for none; `now`: seconds since 1970.
rt::String vmText(const VmRow& row, const std::optional<std::set<rt::String>>& present,
                  const rt::String& screen, uint64_t now);

}  // namespace ctl
