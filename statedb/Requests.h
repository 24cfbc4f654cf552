// What every backend refuses, in the same words.
#pragma once

#include <vector>

#include "statedb/StateDb.h"

namespace statedb {

// These throw Error `invalid`. Where `isStatus` is null, any table is in any half.
void requireSoundName(const rt::String& table, const rt::String& key);
void requireTables(const std::vector<rt::String>& tables, Half half, IsStatus isStatus);
void requireSound(const Transaction& transaction, Half half, IsStatus isStatus);
// Whether names and document are as short as all are.
bool fits(const Record& record);

Half halfOf(std::string_view table, IsStatus isStatus);
// The half that all tables of a request are of; `invalid` when they are of both, or none is named.
Half halfOf(const std::vector<rt::String>& tables, IsStatus isStatus);
Half halfOf(const Transaction& transaction, IsStatus isStatus);

Error notJson(const rt::String& table, const rt::String& key);
// `found`: the record's revision, which is not the guard's.
ConflictError conflict(const Transaction::Guard& guard, uint64_t found);

}  // namespace statedb
