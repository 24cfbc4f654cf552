// What every backend refuses, in the same words.
#pragma once

#include <vector>

#include "statedb/StateDb.h"

namespace statedb {

// These throw Error `invalid`.
void requireSoundName(const rt::String& table, const rt::String& key);
void requireTables(const std::vector<rt::String>& tables, Half half);
void requireSound(const Transaction& transaction, Half half);
// Whether names and document are as short as all are.
bool fits(const Record& record);

// The half that all tables of a request are of; `invalid` when they are of both, or none is named.
Half halfOf(const std::vector<rt::String>& tables);
Half halfOf(const Transaction& transaction);

Error notJson(const rt::String& table, const rt::String& key);
// `found`: the record's revision, which is not the guard's.
ConflictError conflict(const Transaction::Guard& guard, uint64_t found);

}  // namespace statedb
