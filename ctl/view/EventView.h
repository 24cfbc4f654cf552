// Events, as people and programs read them.
#pragma once

#include "ctl/line/Table.h"
#include "model/Event.h"

namespace ctl {

// TIME, VM where they are of all, WHAT, TEXT and BY.
Table eventTable(bool isOfAll);
std::vector<Cell> eventCells(const model::Event& event, bool isOfAll, uint64_t now);

// An object: each member is always there, and null when nobody knows. Times are seconds since 1970.
rt::String eventJson(const model::Event& event);

}  // namespace ctl
