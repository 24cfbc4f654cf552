// What is in a database file, and how an older file comes to have it.
#pragma once

#include <span>

#include "statedb/sqlite/Connection.h"
#include "statedb/sqlite/SqliteDb.h"

namespace statedb::sqlite {

// Statements that lead from one format of the file to the next, from the empty file on: a file's
// format is the number of those done. What was released is never edited, only added to.
std::span<const char* const> formatSteps();

// Makes sure that the file is ours and of the last format. The owner does what steps are missing,
// all or none, and so does the reopener unless the file is empty; anyone else throws `older`, or
// `missing` for an empty file. Throws `newer` and `foreign`.
void requireFormat(Connection& connection, Role role,
                   std::span<const char* const> steps = formatSteps());

}  // namespace statedb::sqlite
