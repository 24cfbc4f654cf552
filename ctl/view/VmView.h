// Virtual machines as documents and as tables.
#pragma once

#include <set>

#include "ctl/view/VmRows.h"

namespace ctl {

// The members of its object:
// "name":...,"config":...,"format":...,"status":...,"process":...,"problem":...
rt::String vmJson(const VmRow& row);

// The headers only, and a row for it.
Table vmTable(Format format);
std::vector<Cell> vmCells(const VmRow& row, Format format);
// One VM, a fact a line. `present`: the interfaces that are there, if that is known; `screen`: the
// socket that the guest's screen is on, empty for none.
rt::String vmText(const VmRow& row, const std::optional<std::set<rt::String>>& present,
                  const rt::String& screen);

}  // namespace ctl
