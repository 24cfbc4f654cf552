#include "ctl/verbs/Configuration.h"

#include <algorithm>

#include "model/FreshMac.h"
#include "model/Tables.h"
#include "model/VmConfigCheck.h"
#include "statedb/EntityDocument.h"

namespace ctl {

namespace {

Refusal refusalOf(const rt::String& name, const std::vector<rt::Problem>& problems) {
  std::vector<rt::String> sentences;
  sentences.reserve(problems.size());
  for (const rt::Problem& problem : problems) sentences.push_back(name + ": " + problem.text());
  return {Exit::invalid, sentences};
}

Vm::VmConfig::Ptr copyOf(const Vm::VmConfig& vm) {
  auto copy = rt::make<Vm::VmConfig>(vm.name());
  statedb::copy(vm, *copy);
  return copy;
}

}  // namespace

Refusal unreadable(const VmRow& row) {
  Refusal refusal = refusalOf(row.name, row.unreadable);
  std::vector<rt::String> sentences = refusal.sentences();
  sentences.push_back(row.name +
                      ": so its row cannot be changed: replace it with 'vmctl apply', or 'vmctl "
                      "remove --force' it and add it anew");
  return {Exit::invalid, sentences};
}

bool isOfUnread(const rt::Problem& problem, const std::vector<rt::Problem>& unread) {
  return std::any_of(unread.begin(), unread.end(), [&](const rt::Problem& each) {
    return problem.field == each.field ||
           problem.field.str().compare(0, each.field.size() + 1, each.field.str() + ".") == 0;
  });
}

Configuration::Configuration(Context& context, Mode mode) : context_(context), mode_(mode) {
  read();
}

void Configuration::read() {
  rows_.clear();
  index_.emplace();
  for (const statedb::Record& record : context_.db().snapshot(configTables()).records) {
    if (record.table != model::table::vmConfig) {  // which comes before all others
      if (const auto row = rows_.find(record.key); row != rows_.end()) {
        if (record.table == model::table::vmImage) row->second.image = imageOf(record);
        if (model::isOwn(record.table)) ownRowIs(row->second.own, record);
      }
      continue;
    }
    VmRow& row = rows_[record.key];
    row.name = record.key;
    configIs(row, record);
    if (row.config) index_->vmIs(*row.config);
  }
}

VmRow Configuration::row(const rt::String& name) const {
  const auto found = rows_.find(name);
  if (found != rows_.end()) return found->second;
  if (vmNamed(context_, name).isUnknown()) throw unknownVm(name);
  std::vector<std::string_view> names;
  names.reserve(rows_.size());
  for (const auto& [each, row] : rows_) names.push_back(each);
  throw noSuchVm(name, names);
}

std::map<rt::String, Vm::VmConfig::Ptr> Configuration::configs() const {
  std::map<rt::String, Vm::VmConfig::Ptr> all;
  for (const auto& [name, row] : rows_)
    if (row.config) all[name] = row.config;
  return all;
}

std::vector<rt::String> Configuration::names() const {
  std::vector<rt::String> names;
  for (const auto& [name, row] : rows_)
    if (row.config) names.push_back(name);
  return names;
}

std::vector<rt::String> Configuration::enabledNames() const {
  std::vector<rt::String> names;
  for (const auto& [name, row] : rows_)
    if (row.isEnabled()) names.push_back(name);
  return names;
}

void Configuration::require(const Vm::VmConfig& vm, std::vector<rt::Problem> problems) {
  for (rt::Problem& problem : model::problemsOf(vm, *index_, context_.world().limits)) {
    if (!isOfUnread(problem, problems)) problems.push_back(std::move(problem));
  }
  if (!problems.empty()) throw refusalOf(vm.name(), problems);
}

void Configuration::commit(Changed& changed, const VmRow& known, const rt::String& format,
                           const Beside& beside) {
  const Vm::VmConfig& vm = *changed.after;
  const bool isNamedNow = !changed.before || changed.before->diskImage() != vm.diskImage();
  statedb::Transaction transaction;
  transaction.guard(model::table::vmConfig, vm.name(), known.revision);
  transaction.put(model::table::vmConfig, vm.name(), statedb::documentOf(vm));
  changed.formatBefore = known.imageFormat();
  changed.formatAfter = putImage(context_, transaction, vm, {format, isNamedNow}, *known.image);
  changed.ownBefore = known.own.records;
  putOwn(transaction, vm.name(), changed.ownAfter, known.own);
  if (beside) beside(transaction);
  if (mode_ == Mode::write) context_.db().commit(transaction);
  index_->vmIs(vm);
}

void Configuration::retry(const std::function<void()>& attempt) {
  retried([&] {
    try {
      attempt();
    } catch (const statedb::ConflictError&) {
      read();
      throw;
    }
  });
}

rt::EthAddr Configuration::freshMac(const Vm::VmConfig& vm) const {
  return model::freshMac(vm, *index_, context_.world().chance());
}

Changed Configuration::add(const rt::String& name, const Change& change) {
  Changed added;
  retry([&] {
    if (rows_.count(name) != 0)
      throw Refusal(Exit::conflict, name +
                                        ": there is a VM of that name already: change it with "
                                        "'vmctl set', or take another name");
    added.after = rt::make<Vm::VmConfig>(name);
    const auto image = rt::make<model::VmImage>(name);
    std::vector<rt::Problem> problems;
    added.ownAfter = model::VmOwn(name);
    change({*added.after, *image, added.ownAfter}, problems);
    require(*added.after, problems);
    commit(added, {}, image->format(), {});
  });
  return added;
}

Changed Configuration::change(const rt::String& name, const Change& change, const Beside& beside) {
  Changed changed;
  retry([&] {
    const VmRow known = row(name);
    if (!known.config) throw unreadable(known);
    changed.before = known.config;
    changed.after = copyOf(*known.config);
    const auto image = rt::make<model::VmImage>(name);
    std::vector<rt::Problem> problems;
    changed.ownAfter = copyOf(known.own.records);
    change({*changed.after, *image, changed.ownAfter}, problems);
    require(*changed.after, problems);
    commit(changed, known, image->format(), beside);
  });
  return changed;
}

}  // namespace ctl
