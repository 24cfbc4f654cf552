#include "ctl/verbs/BackupVerbs.h"

#include <map>

#include "ctl/line/Json.h"
#include "ctl/verbs/ApplyVerbs.h"
#include "ctl/verbs/InterfaceVerbs.h"
#include "ctl/view/VmDocument.h"
#include "ctl/view/VmRows.h"
#include "model/Tables.h"
#include "runtime/base/Text.h"

namespace ctl {

namespace {

using Records = std::map<rt::String, const statedb::Record*>;  // by key

Records recordsOf(const statedb::Snapshot& snapshot, std::string_view table) {
  Records records;
  for (const statedb::Record& record : snapshot.records)
    if (record.table == table) records[record.key] = &record;
  return records;
}

const statedb::Record* recordIn(const Records& records, const rt::String& key) {
  const auto found = records.find(key);
  return found == records.end() ? nullptr : found->second;
}

// All VMs of it, as far as it has their configuration.
rt::String documentOf(const statedb::Snapshot& backup) {
  std::map<rt::String, DocsByTable> rows;  // by VM
  for (const rt::String& table : configTables())
    for (const auto& [name, record] : recordsOf(backup, table)) rows[name][table] = record->doc;
  rt::String json = R"({"version":1,"vms":[)";
  const char* separator = "";
  for (const auto& [name, docs] : rows) {
    if (!docs.contains(model::table::vmConfig)) continue;
    (json += separator) += vmDocument(name, docs);
    separator = ",";
  }
  return json + "]}";
}

rt::String deviceOf(const statedb::Record& record) {
  const auto json = JsonValue::parse(record.doc);
  return json ? json->text("deviceName").value_or("") : rt::String();
}

// Adds what makes the interfaces those of the backup, each as it is known here, and returns a line
// for each.
std::vector<rt::String> addInterfaces(Context& context, const statedb::Snapshot& backup,
                                      Others others, statedb::Transaction& transaction) {
  const rt::String table = model::table::interface;
  const statedb::Snapshot now = context.db().snapshot({table});
  const Records before = recordsOf(now, table);
  const Records after = recordsOf(backup, table);
  std::vector<rt::String> lines;
  std::vector<rt::String> problems;
  for (const auto& [id, record] : after) {
    const statedb::Record* const known = recordIn(before, id);
    if (known && known->doc == record->doc) continue;
    for (const rt::String& problem : interfaceProblems(id, deviceOf(*record)))
      problems.push_back(problem);
    transaction.guard(table, id, known ? known->revision : 0).put(table, id, record->doc);
    lines.push_back("interface " + id + ": is device '" + deviceOf(*record) + "'");
  }
  if (others == Others::prune)
    for (const auto& [id, record] : before) {
      if (recordIn(after, id)) continue;
      transaction.guard(table, id, record->revision).del(table, id);
      lines.push_back("interface " + id + ": is the device of its own name");
    }
  if (!problems.empty()) throw Refusal(Exit::invalid, problems);
  return lines;
}

}  // namespace

Exit backUp(Context& context, const Arguments& arguments) {
  const rt::String& file = arguments.words().front();
  constexpr unsigned ownerOnly = 0600;
  context.world().backUpConfig(context.directories().state,
                               {.path = file,
                                .mode = ownerOnly,
                                .standing = arguments.has("force") ? FilePlace::Standing::isReplaced
                                                                   : FilePlace::Standing::stays});
  const statedb::Snapshot written = context.world().readConfigBackup(file);
  const size_t vms = recordsOf(written, model::table::vmConfig).size();
  context.tell(file + ": the configuration of " + rt::toText(vms) + (vms == 1 ? " VM" : " VMs"));
  return Exit::done;
}

Exit restore(Context& context, const Arguments& arguments) {
  const rt::String& file = arguments.words().front();
  const statedb::Snapshot backup = context.world().readConfigBackup(file);
  const ApplyMode mode = applyModeOf(arguments);
  return apply(context, readApplyDocument(documentOf(backup)), mode,
               [&](statedb::Transaction& transaction) {
                 return addInterfaces(context, backup, mode.others, transaction);
               });
}

}  // namespace ctl
