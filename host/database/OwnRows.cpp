#include "host/database/OwnRows.h"

#include "host/base/Problems.h"
#include "model/VmFields.h"
#include "statedb/EntityDocument.h"

namespace host {

namespace {

// The table's name as long as the program runs.
std::string_view lasting(std::string_view table) {
  for (const auto& each : model::ownTables)
    if (each.table == table) return each.table;
  return {};
}

}  // namespace

void OwnRows::rowIs(std::string_view table, const rt::String& vm,
                    const std::optional<statedb::Record>& row) {
  Rows& known = rows_.try_emplace(vm, Rows{model::VmOwn(vm), {}, {}}).first->second;
  const model::VmOwn read(vm);
  const auto check = [&](const rt::Entity& record) {
    return model::fieldProblems(record, table, machine_);
  };
  const auto problems = row ? statedb::fill(read.record(table), row->doc, {.check = check})
                            : std::vector<rt::Problem>();
  if (problems.empty()) {
    known.own.recordIs(table, read);
    known.problems.erase(table);
  } else {
    known.problems[lasting(table)] = rt::String(table) + ": " + textOf(problems);
  }
  if (row)
    known.tables.insert(lasting(table));
  else
    known.tables.erase(lasting(table));
  if (known.tables.empty()) rows_.erase(vm);
}

const model::VmOwn& OwnRows::own(const rt::String& vm) const {
  const auto rows = rows_.find(vm);
  return rows == rows_.end() ? usual_ : rows->second.own;
}

rt::String OwnRows::problem(const rt::String& vm) const {
  const auto rows = rows_.find(vm);
  rt::String text;
  if (rows == rows_.end()) return text;
  for (const auto& [table, problem] : rows->second.problems)
    (text += text.empty() ? "" : "; ") += problem;
  return text;
}

}  // namespace host
