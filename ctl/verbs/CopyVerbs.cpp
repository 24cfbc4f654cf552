#include "ctl/verbs/CopyVerbs.h"

#include <algorithm>

#include "ctl/verbs/ApplyPlan.h"
#include "ctl/verbs/ConfigVerbs.h"
#include "ctl/verbs/Configuration.h"
#include "ctl/view/CardInterfaces.h"
#include "model/Tables.h"
#include "runtime/base/Text.h"
#include "statedb/EntityDocument.h"

namespace ctl {

namespace {

VmRow readableVm(Context& context, const rt::String& name) {
  VmRow row = requiredVm(context, name);
  if (!row.config) throw unreadable(row);
  return row;
}

// Of a guest that runs without a row, a new row of its name would take hold.
void requireNoGuest(Context& context, const rt::String& name) {
  if (vmNamed(context, name).isUnknown()) throw unknownVm(name);
}

void copyOwn(const model::VmOwn& from, const model::VmOwn& to) {
  for (const auto& each : model::ownTables)
    statedb::copy(from.record(each.table), to.record(each.table));
}

bool isSaid(const std::vector<Assignment>& fields, std::string_view name) {
  return std::any_of(fields.begin(), fields.end(),
                     [&](const Assignment& field) { return field.field == name; });
}

// The first port that no VM has; 0: none is left.
uint32_t freePort(const Configuration& configuration) {
  const auto all = configuration.configs();
  for (uint32_t port = model::firstVncPort; port <= model::lastVncPort; ++port)
    if (std::none_of(all.begin(), all.end(),
                     [&](const auto& vm) { return vm.second->vncPort() == port; }))
      return port;
  return 0;
}

// What the clone cannot share with the one it is of has to be said. A CD any number may read.
void requireItsOwn(Context& context, const Configuration& configuration, const Vm::VmConfig& vm,
                   const std::vector<Assignment>& fields) {
  std::vector<rt::String> sentences;
  if (!isSaid(fields, "diskImage") && !context.imageFacts(vm.diskImage()).isCd)
    sentences.push_back(vm.name() + ": its disk image '" + vm.diskImage() +
                        "' is for one VM alone: copy it while the guest is off, and name the copy "
                        "with --disk FILE");
  if (!isSaid(fields, "vncPort") && vm.vncPort() != 0) {
    const uint32_t port = freePort(configuration);
    sentences.push_back(vm.name() + ": its VNC port " + rt::toText(vm.vncPort()) +
                        " is for one VM alone: say --vnc-port 0 for no display" +
                        (port == 0 ? rt::String(": all others are taken")
                                   : ", or another port, such as --vnc-port " + rt::toText(port)));
  }
  if (!sentences.empty()) throw Refusal(Exit::conflict, sentences);
}

// The VM as it is, under another name.
ApplyDocument documentOf(const VmRow& row, const rt::String& name) {
  ApplyDocument document;
  document.vms.push_back(rt::make<Vm::VmConfig>(name));
  statedb::copy(*row.config, *document.vms.front());
  if (const rt::String format = row.imageFormat(); !format.empty()) document.formats[name] = format;
  copyOwn(row.own.records, document.own.try_emplace(name, model::VmOwn(name)).first->second);
  return document;
}

// What runs under a name keeps it.
void requireOff(const VmRow& row) {
  if (!row.config->enabled() && row.isOff()) return;
  throw Refusal(Exit::conflict, row.name + ": is not off: 'vmctl stop " + row.name +
                                    " --wait' first, then rename it and start it again");
}

void rename(Context& context, const Configuration& configuration, const rt::String& from,
            const rt::String& to) {
  const VmRow row = readableVm(context, from);
  requireOff(row);
  auto others = configuration.rows();
  if (others.contains(to))
    throw Refusal(Exit::conflict,
                  to +
                      ": there is a VM of that name already: take another name, or 'vmctl remove " +
                      to + "' first");
  requireNoGuest(context, to);
  others.erase(from);
  const Plan plan = planOf(others, documentOf(row, to), Others::stay, context.world().limits);
  if (!plan.problems.empty()) throw Refusal(Exit::invalid, plan.problems);
  statedb::Transaction transaction;
  transaction.guard(model::table::vmConfig, from, row.revision);
  transaction.guard(model::table::vmConfig, to, 0);
  delVm(transaction, from);
  putVm(context, transaction, plan.steps.front());
  context.db().commit(transaction);
}

}  // namespace

Exit cloneVm(Context& context, const Arguments& arguments) {
  const std::vector<rt::String>& words = arguments.words();
  std::vector<Assignment> fields = optionFields(context, arguments);
  for (Assignment& each : wordFields(context, std::span(words).subspan(2)))
    fields.push_back(std::move(each));
  const VmRow row = readableVm(context, words[0]);
  requireNoGuest(context, words[1]);
  Configuration configuration(context, modeOf(arguments));
  requireItsOwn(context, configuration, *row.config, fields);
  const auto made = configuration.add(words[1], [&](const VmRecords& records, auto& problems) {
    statedb::copy(*row.config, records.vm);
    records.vm.enabledIs(false);
    for (const auto& [key, card] : records.vm.vnicConfigs())
      card->macAddrIs(configuration.freshMac(records.vm));
    if (!isSaid(fields, "diskImage")) records.image.formatIs(row.imageFormat());
    copyOwn(row.own.records, records.own);
    assign(records, fields, context.world().limits, problems);
    if (records.vm.diskImage() != row.config->diskImage())
      addImageProblem(context, records, problems);
  });
  const Vm::VmConfig& vm = *made.after;
  warnOfImage(context, vm, made.formatAfter);
  warnOfSharedImage(context, configuration.configs(), vm);
  warnOfInterfaces(context, vm);
  const bool onlyTells = configuration.mode() == Configuration::Mode::tell;
  context.tell(vm.name() + (onlyTells ? ": would be added" : ": added") + " as a clone of " +
               row.name + (vm.enabled() ? ", enabled" : ", disabled"));
  if (!onlyTells) complainOfDelay(context);
  return Exit::done;
}

Exit renameVm(Context& context, const Arguments& arguments) {
  const rt::String& from = arguments.words()[0];
  const rt::String& to = arguments.words()[1];
  Configuration configuration(context);
  configuration.retry([&] { rename(context, configuration, from, to); });
  context.tell(from + ": is named " + to + " now");
  return Exit::done;
}

}  // namespace ctl
