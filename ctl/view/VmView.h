// Virtual machines as documents and as tables.
#pragma once

#include <set>

#include "ctl/view/StateView.h"

namespace ctl {

// The members of its object: "name":..., those of stateJson(), "config":...,"format":...,
// "status":...,"process":...,"problem":...
rt::String vmJson(const VmRow& row);

// The headers only, and a row for it.
Table vmTable(Format format);
std::vector<Cell> vmCells(const VmRow& row, Format format, const Telling& telling);
// A row for a VM of which nothing is left.
std::vector<Cell> goneCells(const rt::String& name, Format format);
// One VM, a fact a line. `present`: the interfaces that are there, if that is known; `screen`: the
// socket that the guest's screen is on, empty for none.
rt::String vmText(const VmRow& row, const std::optional<std::set<rt::String>>& present,
                  const rt::String& screen, const Telling& telling);

}  // namespace ctl
