#include "ctl/verbs/FdbVerbs.h"

#include <algorithm>

#include "ctl/line/Json.h"
#include "ctl/view/VmRows.h"
#include "runtime/base/Text.h"

namespace ctl {

namespace {

struct FdbRow {
  rt::String key;  // "VLAN/MAC"
  uint16_t vlanId = 0;
  rt::String macAddr;
  rt::String intf;
  int64_t entryType = 0;
  rt::String bridge;
};

FdbRow rowOf(const statedb::Record& record) {
  FdbRow row;
  row.key = record.key;
  const size_t slash = std::min(record.key.str().find('/'), record.key.size());
  row.vlanId = rt::fromText<uint16_t>(record.key.substr(0, slash)).value_or(0);
  row.macAddr = record.key.substr(slash + 1);
  const auto json = JsonValue::parse(record.doc);
  if (!json) return row;
  row.intf = json->text("intf").value_or("");
  row.entryType = json->number("entryType").value_or(0);
  row.bridge = json->text("bridge").value_or("");
  return row;
}

std::vector<FdbRow> allFdb(Context& context) {
  std::vector<FdbRow> rows;
  for (const auto& record : context.status({"fdb"}).records) rows.push_back(rowOf(record));
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
    (json += R"(,"intf":)") += quoted(row.intf);
    ((json += R"(,"entryType":)") += rt::toText(row.entryType)) += '}';
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
    for (const FdbRow& row : rows) context.world().out << visible(row.key) << '\n';
  } else if (rows.empty()) {
    context.tell("there are no static MAC entries");
  } else {
    const bool isWide = context.format() == Format::wide;
    std::vector<Cell> headers{"VLAN", "MAC", "INTERFACE", "TYPE"};
    if (isWide) headers.emplace_back("BRIDGE");
    Table table(headers);
    for (const FdbRow& row : rows) {
      std::vector<Cell> cells{rt::toText(row.vlanId), row.macAddr, row.intf,
                              rt::toText(row.entryType)};
      if (isWide) cells.emplace_back(row.bridge);
      table.row(cells);
    }
    context.print(table);
  }
  return Exit::done;
}

}  // namespace ctl
