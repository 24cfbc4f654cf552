#include "ctl/view/VmRows.h"

#include <algorithm>

#include "ctl/line/Json.h"
#include "model/VmConfigCheck.h"
#include "runtime/base/NearName.h"
#include "statedb/EntityDocument.h"

namespace ctl {

namespace {

VmProcess processOf(const rt::String& doc) {
  VmProcess process;
  const auto json = JsonValue::parse(doc);
  if (!json) return process;
  process.process = json->text("process").value_or(process.process);
  process.pid = json->number("pid").value_or(0);
  process.restarts = json->number("restarts").value_or(0);
  process.unknown = json->text("unknown").value_or("");
  return process;
}

std::optional<VmProblem> problemOf(const rt::String& doc) {
  const auto json = JsonValue::parse(doc);
  const auto problem = json ? json->text("problem") : std::nullopt;
  if (!problem) return std::nullopt;
  return VmProblem{*problem, json->number("since").value_or(0), json->text("source").value_or("")};
}

// Adds a row of any table to what is known of its VM.
void add(VmRow& row, const statedb::Record& record) {
  if (record.table == "vmStatus") {
    row.status = rt::make<Vm::VmStatus>(row.name);
    (void)statedb::fill(*row.status, record.doc);  // the daemon's own; defaults if it is damaged
  } else if (record.table == "vmProcess") {
    row.process = processOf(record.doc);
  } else if (record.table == "vmProblem") {
    row.problem = problemOf(record.doc);
  } else if (record.table == "vmImage") {
    row.image = imageOf(record.doc);
  } else {
    configIs(row, record);
  }
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
    if (record.table != "vmProcess" || rowNamed(rows, record.key)) continue;
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

VmImage imageOf(const rt::String& doc) {
  const auto json = JsonValue::parse(doc);
  if (!json) return {};
  return {json->text("diskImage").value_or(""), json->text("format").value_or("")};
}

void configIs(VmRow& row, const statedb::Record& record) {
  row.revision = record.revision;
  row.config = rt::make<Vm::VmConfig>(row.name);
  row.unreadable = fillVm(*row.config, record.doc);
  if (!row.unreadable.empty()) row.config = nullptr;
}

std::vector<VmRow> allVms(Context& context) {
  const statedb::Snapshot configs = context.db().snapshot({"vmConfig", "vmImage"});
  const statedb::Snapshot statuses = context.status({"vmProblem", "vmProcess", "vmStatus"});
  std::vector<VmRow> rows;
  for (const statedb::Record& record : configs.records) {  // vmConfig comes first
    if (record.table == "vmConfig") rows.emplace_back().name = record.key;
    if (VmRow* const row = rowNamed(rows, record.key)) add(*row, record);
  }
  addUnconfigured(rows, statuses.records);
  for (const statedb::Record& record : statuses.records)
    if (VmRow* const row = rowNamed(rows, record.key)) add(*row, record);
  return rows;
}

VmRow vmNamed(Context& context, const rt::String& name) {
  VmRow row;
  row.name = name;
  if (name.empty()) return row;  // no key can be
  for (const char* table : {"vmConfig", "vmImage"})
    if (const auto record = context.db().record(table, name)) add(row, *record);
  for (const char* table : {"vmStatus", "vmProcess", "vmProblem"})
    if (const auto record = context.status(table, name)) add(row, *record);
  return row;
}

VmRow requiredVm(Context& context, const rt::String& name) {
  VmRow row = vmNamed(context, name);
  if (row.exists()) return row;
  if (row.isUnknown()) throw unknownVm(name);
  const statedb::Snapshot configs = context.db().snapshot({"vmConfig"});
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
  return {Exit::noSuch, name + ": there is no such VM" + rt::didYouMean(name, names)};
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
  if (context.daemonRuns()) return false;
  context.complain("vmagentd is not running: the status is as it was left");
  return true;
}

}  // namespace ctl
