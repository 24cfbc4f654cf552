#include "ctl/view/VmRows.h"

#include <algorithm>

#include "model/Tables.h"
#include "model/VmConfigCheck.h"
#include "runtime/base/NearName.h"
#include "statedb/EntityDocument.h"

namespace ctl {

namespace {

// The daemon's own rows, which may be of another version's.
template <class T>
rt::Ptr<T> recordOf(const statedb::Record& row) {
  auto record = rt::make<T>(row.key);
  statedb::fillKnown(*record, row.doc);
  return record;
}

// Adds a row of any table to what is known of its VM.
void add(VmRow& row, const statedb::Record& record) {
  if (record.table == model::table::vmStatus) {
    row.status = recordOf<Vm::VmStatus>(record);
  } else if (record.table == model::table::vmProcess) {
    row.process = recordOf<model::VmProcess>(record);
  } else if (record.table == model::table::vmProblem) {
    row.problem = recordOf<model::VmProblem>(record);
    if (row.problem->problem().empty()) row.problem = nullptr;
  } else if (record.table == model::table::vmImage) {
    row.image = imageOf(record);
  } else if (model::isOwn(record.table)) {
    ownRowIs(row.own, record);
  } else {
    configIs(row, record);
  }
}

rt::String cardRow(const rt::String& vm, const rt::String& card) { return vm + "/" + card; }

// Adds what is told of one of its cards; of others than it is to have, nothing.
void addCard(VmRow& row, const statedb::Record& record) {
  if (!row.config) return;
  for (const auto& [key, card] : row.config->vnicConfigs())
    if (record.key == cardRow(row.name, key)) row.cards[key] = recordOf<model::VmCard>(record);
}

bool isBefore(const VmRow& row, const rt::String& name) { return row.name < name; }

// Null: there is none.
VmRow* rowNamed(std::vector<VmRow>& rows, const rt::String& name) {
  const auto row = std::lower_bound(rows.begin(), rows.end(), name, isBefore);
  return row != rows.end() && row->name == name ? &*row : nullptr;
}

// Adds those that are not configured, and have a process.
void addUnconfigured(std::vector<VmRow>& rows, const std::vector<statedb::Record>& statuses) {
  std::vector<VmRow> others;
  for (const statedb::Record& record : statuses) {
    if (record.table != model::table::vmProcess || rowNamed(rows, record.key)) continue;
    VmRow row;
    row.name = record.key;
    add(row, record);
    if (row.isUnknown() || row.isLeaving()) others.push_back(std::move(row));
  }
  for (VmRow& row : others) {
    const auto place = std::lower_bound(rows.begin(), rows.end(), row.name, isBefore);
    rows.insert(place, std::move(row));
  }
}

}  // namespace

std::vector<rt::Problem> fillVm(Vm::VmConfig& vm, std::string_view json) {
  return statedb::fill(vm, json,
                       {.switchAttribute = {}, .check = {}, .defaults = model::vmDefaults});
}

std::vector<rt::String> configTables() {
  std::vector<rt::String> tables{model::table::vmConfig, model::table::vmImage};
  for (const auto& each : model::ownTables) tables.emplace_back(each.table);
  return tables;
}

void delVm(statedb::Transaction& transaction, const rt::String& name) {
  for (const rt::String& table : configTables()) transaction.del(table, name);
  transaction.del(model::table::vmIntent, name);
}

model::VmImage::Ptr imageOf(const statedb::Record& record) {
  return recordOf<model::VmImage>(record);
}

model::DaemonStatus::Ptr daemonStatus(Context& context) {
  const auto record = context.status(model::table::daemon, model::daemonKey);
  return record ? recordOf<model::DaemonStatus>(*record) : nullptr;
}

void configIs(VmRow& row, const statedb::Record& record) {
  row.revision = record.revision;
  row.config = rt::make<Vm::VmConfig>(row.name);
  row.unreadable = fillVm(*row.config, record.doc);
  if (!row.unreadable.empty()) row.config = nullptr;
}

std::vector<VmRow> allVms(Context& context) {
  const statedb::Snapshot configs = context.db().snapshot(configTables());
  const statedb::Snapshot statuses =
      context.status({model::table::vmCard, model::table::vmProblem, model::table::vmProcess,
                      model::table::vmStatus});
  std::vector<VmRow> rows;
  for (const statedb::Record& record : configs.records) {  // vmConfig comes first
    if (record.table == model::table::vmConfig) rows.emplace_back().name = record.key;
    if (VmRow* const row = rowNamed(rows, record.key)) add(*row, record);
  }
  addUnconfigured(rows, statuses.records);
  for (const statedb::Record& record : statuses.records) {
    const bool isCard = record.table == model::table::vmCard;
    VmRow* const row = rowNamed(rows, isCard ? model::vmOfCard(record.key.str()) : record.key);
    if (row && isCard) addCard(*row, record);
    if (row && !isCard) add(*row, record);
  }
  return rows;
}

VmRow vmNamed(Context& context, const rt::String& name) {
  VmRow row;
  row.name = name;
  if (name.empty()) return row;  // no key can be
  for (const rt::String& table : configTables())
    if (const auto record = context.db().record(table, name)) add(row, *record);
  for (const char* table :
       {model::table::vmStatus, model::table::vmProcess, model::table::vmProblem})
    if (const auto record = context.status(table, name)) add(row, *record);
  if (!row.config) return row;
  for (const auto& [key, card] : row.config->vnicConfigs())
    if (const auto record = context.status(model::table::vmCard, cardRow(name, key)))
      addCard(row, *record);
  return row;
}

VmRow requiredVm(Context& context, const rt::String& name) {
  VmRow row = vmNamed(context, name);
  if (row.exists()) return row;
  if (row.isUnknown()) throw unknownVm(name);
  const statedb::Snapshot configs = context.db().snapshot({model::table::vmConfig});
  std::vector<std::string_view> names;
  names.reserve(configs.records.size());
  for (const auto& record : configs.records) names.push_back(record.key);
  throw noSuchVm(name, names);
}

VmRow presentVm(Context& context, const rt::String& name) {
  VmRow row = vmNamed(context, name);
  return row.isUnknown() || row.isLeaving() ? row : requiredVm(context, name);
}

Refusal noSuchVm(const rt::String& name, const std::vector<std::string_view>& names) {
  return {Exit::noSuch, name + ": there is no such VM" +
                            (name == "all" ? rt::String("; --all means all of them")
                                           : rt::didYouMean(name, names))};
}

Refusal unknownVm(const rt::String& name) {
  return {Exit::conflict,
          name +
              ": is in no configuration, though its guest runs: 'vmctl apply' what has it, or "
              "end it with 'vmctl remove " +
              name + " --force'"};
}

void complainOfUnreadable(Context& context, const VmRow& row) {
  for (const rt::Problem& problem : row.unreadable)
    context.complain(row.name + ": its configuration cannot be read: " + problem.text());
}

bool complainOfStaleness(Context& context) {
  if (!context.daemonRuns()) {
    context.complain("vmagentd is not running: the status is as it was left");
    return true;
  }
  const rt::String& run = context.directories().run;
  const auto bytes = context.world().machine.freeSpace(run);
  if (bytes && *bytes < leastRunSpace)
    context.complain(run + " is full: the status may be older than what is so");
  return false;
}

}  // namespace ctl
