// A VM's rows of the host's own tables, as an operator says and sees them.
#pragma once

#include <map>
#include <vector>

#include "model/VmOwn.h"
#include "statedb/StateDb.h"

namespace ctl {

// As they were read.
struct OwnRows {
  model::VmOwn records;
  std::map<rt::String, uint64_t> revisions;  // by table, of those that are there

  uint64_t revision(std::string_view table) const {
    const auto found = revisions.find(rt::String(table));
    return found == revisions.end() ? 0 : found->second;
  }
};

// Takes a row of one of the tables.
void ownRowIs(OwnRows& rows, const statedb::Record& record);

// New records that are the same.
model::VmOwn copyOf(const model::VmOwn& own);
bool isSame(const model::VmOwn& a, const model::VmOwn& b);

// Adds the rows to what is written that are to be others: one that says what is usual is none.
void putOwn(statedb::Transaction& transaction, const rt::String& vm, const model::VmOwn& own,
            const OwnRows& known);

// The fields that differ from those of before, such as "cpuWeight=50".
std::vector<rt::String> ownTexts(const model::VmOwn& own, const model::VmOwn& before);

// R"(,"limits":{...})" and so on for a document: those that do not say what is usual.
rt::String ownMembers(const model::VmOwn& own);

}  // namespace ctl
