#include "ctl/verbs/ApplyPlan.h"

#include <algorithm>

#include "ctl/line/Json.h"
#include "ctl/verbs/Configuration.h"
#include "ctl/view/OwnRows.h"
#include "model/ConfigIndex.h"
#include "model/RestartNeeded.h"
#include "model/Tables.h"
#include "model/VmConfigCheck.h"
#include "model/VmFields.h"
#include "statedb/EntityDocument.h"

namespace ctl {

namespace {

using Problems = std::vector<rt::Problem>;
using Flat = std::map<rt::String, rt::String>;  // path -> value as JSON

void flatten(const JsonValue& value, const rt::String& path, Flat& flat) {
  if (!value.isObject()) {
    flat[path] = value.dump();
    return;
  }
  for (const rt::String& name : value.names())
    flatten(*value.member(name.charPtr()), path.empty() ? name : path + "." + name, flat);
}

Flat flatOf(const Vm::VmConfig& vm) {
  Flat flat;
  if (const auto json = JsonValue::parse(statedb::documentOf(vm))) flatten(*json, "", flat);
  return flat;
}

std::vector<rt::String> changesOf(const Vm::VmConfig& before, const Vm::VmConfig& after) {
  const Flat old = flatOf(before);
  const Flat now = flatOf(after);
  std::vector<rt::String> changes;
  for (const auto& [path, value] : now) {
    const auto known = old.find(path);
    if (known == old.end() || known->second != value) changes.push_back(path + "=" + value);
  }
  for (const auto& [path, value] : old)
    if (now.count(path) == 0) changes.push_back(path + " is gone");
  return changes;
}

// What is not said of a VM is as usual, but for the format of its image.
struct Said {
  rt::String format;
  model::VmOwn own;
};

Said saidOf(const ApplyDocument& document, const rt::String& name) {
  const auto format = document.formats.find(name);
  const auto own = document.own.find(name);
  return {format == document.formats.end() ? rt::String() : format->second,
          own == document.own.end() ? model::VmOwn(name) : own->second};
}

Step stepOf(const VmRow* row, const Vm::VmConfig::Ptr& vm, const Said& said) {
  const rt::String& format = said.format;
  Step step;
  step.name = vm->name();
  step.config = vm;
  step.own = said.own;
  step.image = {format, !row || !row->config || row->config->diskImage() != vm->diskImage()};
  if (!row) {
    step.kind = StepKind::add;
    return step;
  }
  step.revision = row->revision;
  step.imageBefore = row->image;
  step.ownBefore = row->own;
  if (row->config) {
    step.changes = changesOf(*row->config, *vm);
    const rt::String known = step.image.isNamedNow ? "" : row->imageFormat();
    const rt::String wanted = format.empty() ? known : format;
    if (wanted != known) step.changes.push_back("format=" + quoted(wanted));
    for (const rt::String& change : ownTexts(step.own, step.ownBefore.records))
      step.changes.push_back(change);
    step.needsRestart = model::needsRestart({*row->config, known}, {*vm, wanted});
  } else {
    step.changes.emplace_back("all of it: it could not be read");
  }
  step.kind = step.changes.empty() ? StepKind::keep : StepKind::change;
  return step;
}

// Each VM that is in the document against all as they will be.
void check(Plan& plan, const std::map<rt::String, VmRow>& rows, const ApplyDocument& document,
           const model::MachineLimits& limits) {
  model::ConfigIndex index;
  for (const auto& [name, row] : rows)
    if (row.config) index.vmIs(*row.config);
  for (const Step& step : plan.steps) {
    if (step.config)
      index.vmIs(*step.config);
    else
      index.vmDel(step.name);
  }
  for (const Step& step : plan.steps) {
    if (!step.config) continue;
    const auto found = document.unread.find(step.name);
    const auto unread = found == document.unread.end() ? Problems() : found->second;
    for (const rt::Problem& problem : model::problemsOf(*step.config, index, limits))
      if (!isOfUnread(problem, unread)) plan.problems.push_back(step.name + ": " + problem.text());
    for (const auto& [table, member] : model::ownTables)
      for (const rt::Problem& problem : model::fieldProblems(step.own.record(table), table, limits))
        plan.problems.push_back(step.name + ": " + member + ": " + problem.text());
  }
}

}  // namespace

void putVm(Context& context, statedb::Transaction& transaction, const Step& step) {
  transaction.put(model::table::vmConfig, step.name, statedb::documentOf(*step.config));
  (void)putImage(context, transaction, *step.config, step.image, *step.imageBefore);
  putOwn(transaction, step.name, step.own, step.ownBefore);
}

rt::String formatOf(const Step& step) {
  if (!step.image.format.empty()) return step.image.format;
  return step.imageBefore->diskImage() == step.config->diskImage() ? step.imageBefore->format()
                                                                   : "";
}

rt::String changesText(const Step& step) {
  rt::String text;
  for (const rt::String& change : step.changes) (text += text.empty() ? "" : ", ") += change;
  return step.needsRestart ? text + " (takes effect at the next start)" : text;
}

Plan planOf(const std::map<rt::String, VmRow>& rows, const ApplyDocument& document, Others others,
            const model::MachineLimits& limits) {
  std::map<rt::String, Step> steps;
  for (const auto& vm : document.vms) {
    const auto row = rows.find(vm->name());
    steps[vm->name()] =
        stepOf(row == rows.end() ? nullptr : &row->second, vm, saidOf(document, vm->name()));
  }
  if (others == Others::prune)
    for (const auto& [name, row] : rows)
      if (steps.count(name) == 0)
        steps[name] = {.kind = StepKind::remove,
                       .name = name,
                       .revision = row.revision,
                       .wasEnabled = row.isEnabled()};
  Plan plan;
  plan.steps.reserve(steps.size());
  for (auto& [name, step] : steps) plan.steps.push_back(std::move(step));
  check(plan, rows, document, limits);
  return plan;
}

}  // namespace ctl
