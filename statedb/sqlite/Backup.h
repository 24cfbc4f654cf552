// A database as one file.
#pragma once

#include "runtime/base/String.h"

namespace statedb::sqlite {

// Writes all that the database is at one moment, as others may go on writing, into a file that is
// empty or not there: it is then a database of the same format and store. What fails leaves it as
// it happens to be. Throws Error; never writes to `file`.
void backUp(const rt::String& file, const rt::String& to);

}  // namespace statedb::sqlite
