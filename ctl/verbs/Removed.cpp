#include "ctl/verbs/Removed.h"

#include <algorithm>
#include <map>
#include <optional>

#include "ctl/line/Json.h"
#include "ctl/view/VmDocument.h"
#include "ctl/view/VmRows.h"
#include "model/Tables.h"
#include "runtime/base/Text.h"

namespace ctl {

namespace {

std::optional<RemovedVm> removedOf(const statedb::Record& record) {
  const auto json = JsonValue::parse(record.doc);
  const auto vm = json ? json->member("vm") : std::nullopt;
  const auto name = vm ? vm->text("name") : std::nullopt;
  if (!name) return std::nullopt;
  return RemovedVm{
      .key = record.key,
      .revision = record.revision,
      .name = *name,
      .at = static_cast<uint64_t>(std::max<int64_t>(json->number("at").value_or(0), 0)),
      .by = json->text("by").value_or(""),
      .document = vm->dump()};
}

// What is kept of the VM; empty: there is none, or it is too long.
rt::String rowOf(Context& context, const rt::String& name) {
  DocsByTable rows;
  for (const rt::String& table : configTables())
    if (const auto record = context.db().record(table, name)) rows[table] = record->doc;
  if (!rows.contains(model::table::vmConfig)) return {};
  rt::String row = R"({"at":)" + rt::toText(context.world().timeOfDay()) + R"(,"by":)" +
                   quoted(context.world().userName()) + R"(,"vm":)" + vmDocument(name, rows) + "}";
  return row.size() <= statedb::longestDocument ? row : rt::String();
}

constexpr size_t keySize = 12;
// A key has as many digits after as many again.
constexpr uint64_t mostNumber = 99'999'999'999;

rt::String keyOf(uint64_t number) { return rt::format("%012ju", static_cast<uintmax_t>(number)); }

// The keys there are by their numbers; 0: none of ours.
std::multimap<uint64_t, rt::String> keysOf(const statedb::Snapshot& snapshot) {
  std::multimap<uint64_t, rt::String> keys;
  for (const statedb::Record& record : snapshot.records) {
    const auto number = record.key.size() == keySize ? rt::fromText<uint64_t>(record.key)
                                                     : std::optional<uint64_t>();
    keys.emplace(number && *number <= mostNumber ? *number : 0, record.key);
  }
  return keys;
}

}  // namespace

std::vector<RemovedVm> removedVms(Context& context) {
  std::vector<RemovedVm> all;
  for (const auto& record : context.db().snapshot({model::table::removed}).records)
    if (auto vm = removedOf(record)) all.push_back(std::move(*vm));
  std::reverse(all.begin(), all.end());  // they are in order of their keys
  return all;
}

void removeVms(Context& context, statedb::Transaction& transaction,
               const std::vector<rt::String>& names) {
  const auto keys = keysOf(context.db().snapshot({model::table::removed}));
  uint64_t number = keys.empty() ? 0 : keys.rbegin()->first;
  std::vector<std::pair<rt::String, rt::String>> rows;
  for (const rt::String& name : names) {
    delVm(transaction, name);
    if (const rt::String row = rowOf(context, name); !row.empty())
      rows.emplace_back(keyOf(++number), row);
  }
  if (rows.size() > mostRemoved)
    rows.erase(rows.begin(), rows.end() - static_cast<std::ptrdiff_t>(mostRemoved));
  for (const auto& [key, row] : rows)
    transaction.guard(model::table::removed, key, 0).put(model::table::removed, key, row);
  size_t left = keys.size();
  for (auto key = keys.begin(); key != keys.end() && left + rows.size() > mostRemoved;
       ++key, --left)
    transaction.del(model::table::removed, key->second);
}

}  // namespace ctl
