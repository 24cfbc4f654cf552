#include "ctl/view/OwnRows.h"

#include "model/VmFields.h"
#include "statedb/EntityDocument.h"

namespace ctl {

namespace {

bool isSame(const model::VmOwn& a, const model::VmOwn& b, std::string_view table) {
  return statedb::documentOf(a.record(table)) == statedb::documentOf(b.record(table));
}

}  // namespace

// A later version's fields are passed over.
void ownRowIs(OwnRows& rows, const statedb::Record& record) {
  const model::VmOwn read(record.key);
  statedb::fillKnown(read.record(record.table), record.doc);
  rows.records.recordIs(record.table, read);
  rows.revisions[record.table] = record.revision;
}

model::VmOwn copyOf(const model::VmOwn& own) {
  model::VmOwn copy(own.limits->name());
  for (const auto& each : model::ownTables)
    statedb::copy(own.record(each.table), copy.record(each.table));
  return copy;
}

bool isSame(const model::VmOwn& a, const model::VmOwn& b) {
  return std::all_of(model::ownTables.begin(), model::ownTables.end(),
                     [&](const auto& each) { return isSame(a, b, each.table); });
}

void putOwn(statedb::Transaction& transaction, const rt::String& vm, const model::VmOwn& own,
            const OwnRows& known) {
  const model::VmOwn usual;
  for (const auto& [table, member] : model::ownTables) {
    if (isSame(own, known.records, table)) continue;
    const rt::String name(table);
    transaction.guard(name, vm, known.revision(table));
    if (isSame(own, usual, table))
      transaction.del(name, vm);
    else
      transaction.put(name, vm, statedb::documentOf(own.record(table)));
  }
}

std::vector<rt::String> ownTexts(const model::VmOwn& own, const model::VmOwn& before) {
  std::vector<rt::String> texts;
  for (const model::VmField& field : model::vmFields()) {
    if (!model::isOwn(field.table)) continue;
    const rt::String value = model::valueOf(own.record(field.table), field);
    if (value != model::valueOf(before.record(field.table), field))
      texts.push_back(rt::String(field.name) + "=" + value);
  }
  return texts;
}

rt::String ownMembers(const model::VmOwn& own) {
  const model::VmOwn usual;
  rt::String json;
  for (const auto& [table, member] : model::ownTables)
    if (!isSame(own, usual, table))
      json +=
          rt::String(",\"") + rt::String(member) + "\":" + statedb::documentOf(own.record(table));
  return json;
}

}  // namespace ctl
