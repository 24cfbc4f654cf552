#include "ctl/verbs/FdbVerbs.h"

#include <algorithm>

#include "ctl/line/Json.h"
#include "ctl/view/VmRows.h"
#include "model/Tables.h"
#include "runtime/base/Text.h"
#include "statedb/EntityDocument.h"

namespace ctl {

namespace {

struct FdbRow {
  model::FdbEntry::Ptr entry;
  uint16_t vlanId = 0;  // of its key, "VLAN/MAC"
  rt::String macAddr;
};

FdbRow rowOf(const statedb::Record& record) {
  FdbRow row;
  row.entry = rt::make<model::FdbEntry>(record.key);
  statedb::fillKnown(*row.entry, record.doc);
  const size_t slash = std::min(record.key.str().find('/'), record.key.size());
  row.vlanId = rt::fromText<uint16_t>(record.key.substr(0, slash)).value_or(0);
  row.macAddr = record.key.substr(slash + 1);
  return row;
}

std::vector<FdbRow> allFdb(Context& context) {
  std::vector<FdbRow> rows;
  for (const auto& record : context.status({model::table::fdb}).records)
    rows.push_back(rowOf(record));
  std::stable_sort(rows.begin(), rows.end(),
                   [](const FdbRow& a, const FdbRow& b) { return a.vlanId < b.vlanId; });
  return rows;
}

rt::String fdbJson(const std::vector<FdbRow>& rows, bool isStale) {
  rt::String json = jsonHead(isStale) + R"("fdb":[)";
  for (const FdbRow& row : rows) {
    if (&row != &rows.front()) json += ',';
    (json += R"({"vlanId":)") += rt::toText(row.vlanId);
    (json += R"(,"macAddr":)") += quoted(row.macAddr);
    (json += R"(,"intf":)") += quoted(row.entry->intf());
    ((json += R"(,"entryType":)") += rt::toText(row.entry->entryType())) += '}';
  }
  return json += "]}";
}

}  // namespace

Exit listFdb(Context& context, const Arguments&) {
  const std::vector<FdbRow> rows = allFdb(context);
  const bool isStale = complainOfStaleness(context);
  if (context.format() == Format::json) {
    context.printJson(fdbJson(rows, isStale));
  } else if (context.format() == Format::name) {
    for (const FdbRow& row : rows) context.world().out << visible(row.entry->key()) << '\n';
  } else if (rows.empty()) {
    context.tell("there are no static MAC entries");
  } else {
    const bool isWide = context.format() == Format::wide;
    std::vector<Cell> headers{"VLAN", "MAC", "INTERFACE", "TYPE"};
    if (isWide) headers.emplace_back("BRIDGE");
    Table table(headers);
    for (const FdbRow& row : rows) {
      std::vector<Cell> cells{rt::toText(row.vlanId), row.macAddr, row.entry->intf(),
                              rt::toText(row.entry->entryType())};
      if (isWide) cells.emplace_back(row.entry->bridge());
      table.row(cells);
    }
    context.print(table);
  }
  return Exit::done;
}

}  // namespace ctl
