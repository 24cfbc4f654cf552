// Virtual machines as the database has them: what was asked for and what is so.
#pragma once

#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "ctl/line/Context.h"
#include "ctl/machine/Machine.h"
#include "ctl/view/OwnRows.h"
#include "model/StatusRecords.h"
#include "model/Tables.h"
#include "model/VmCard.h"
#include "model/VmImage.h"
#include "runtime/base/Problem.h"
#include "runtime/records/VmConfig.h"
#include "runtime/records/VmStatus.h"

namespace ctl {

struct VmRow {
  rt::String name;
  uint64_t revision = 0;                // of the configuration; 0: it has none
  Vm::VmConfig::Ptr config;             // null: there is none, or it cannot be read
  std::vector<rt::Problem> unreadable;  // why it cannot be read
  Vm::VmStatus::Ptr status;             // null: the agent has made none
  // Never null: without a row, there is no process.
  model::VmProcess::Ptr process = rt::make<model::VmProcess>("");
  model::VmProblem::Ptr problem;  // null: there is none
  // By key, those of its configuration that its guest has.
  std::map<rt::String, model::VmCard::Ptr> cards;
  // Never null: without a row, of no image.
  model::VmImage::Ptr image = rt::make<model::VmImage>("");
  OwnRows own;

  // What its disk image is opened as; empty: nobody has said yet.
  rt::String imageFormat() const {
    return config && config->diskImage() == image->diskImage() ? image->format() : rt::String();
  }
  // The row of that table, one that vmFields() stand in; `config` is not null.
  const rt::Entity& record(std::string_view table) const {
    if (table == model::table::vmImage) return *image;
    if (model::isOwn(table)) return own.records.record(table);
    return *config;
  }
  bool exists() const { return revision != 0; }
  // In no configuration, and nobody is known to have removed it: its guest goes on.
  bool isUnknown() const { return !exists() && !process->unknown().empty(); }
  // It was removed, and its guest has not ended yet.
  bool isLeaving() const { return !exists() && !isUnknown() && process->process() != "none"; }
  bool isEnabled() const { return config && config->enabled(); }
  // As it is when it was told to start and nothing is left to do.
  bool runs() const { return status && status->enabled() && status->state() == "Running"; }
  // Its guest has ended by itself, or could not be started: nothing happens until it is asked for.
  // (Its state alone says less: it is "Stopped" for a moment of each start, too.)
  bool hasEnded() const {
    return status && status->enabled() && status->state() == "Stopped" &&
           process->process() == "none";
  }
  bool isOff() const { return !(status && status->enabled()) && process->process() == "none"; }
};

// The tables that a VM's configuration stands in, vmConfig first.
std::vector<rt::String> configTables();
// Deletes all that was asked for of the VM.
void delVm(statedb::Transaction& transaction, const rt::String& name);

// Makes the VM what a document says, or returns all that keeps it from being read.
std::vector<rt::Problem> fillVm(Vm::VmConfig& vm, std::string_view json);
// Sets `config`, or says in `unreadable` why not.
void configIs(VmRow& row, const statedb::Record& record);
model::VmImage::Ptr imageOf(const statedb::Record& record);

// All that are configured, that are unknown, and that are leaving, by name. Reads each table once.
std::vector<VmRow> allVms(Context& context);
// One of any name.
VmRow vmNamed(Context& context, const rt::String& name);
// Refuses a name that is not configured.
VmRow requiredVm(Context& context, const rt::String& name);
// Likewise, but takes one that is unknown or leaving.
VmRow presentVm(Context& context, const rt::String& name);

// "web9: there is no such VM; did you mean 'web1'?"
Refusal noSuchVm(const rt::String& name, const std::vector<std::string_view>& names);

// Of an unknown one, for what only a configured one can be told to do.
Refusal unknownVm(const rt::String& name);

// What the daemon says of itself; null while it has said nothing.
model::DaemonStatus::Ptr daemonStatus(Context& context);

// A line for each row that cannot be read.
void complainOfUnreadable(Context& context, const VmRow& row);
// Says so when no daemon runs; returns whether it does not.
bool complainOfStaleness(Context& context);

}  // namespace ctl
