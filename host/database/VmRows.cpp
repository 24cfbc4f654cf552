#include "host/database/VmRows.h"

#include <algorithm>

#include "statedb/EntityDocument.h"

namespace host {

std::set<rt::String> VmRows::apply(const std::vector<statedb::Change>& changes,
                                   const rt::String& history) {
  std::set<rt::String> changed;
  for (const auto& change : changes) {
    changed.insert(change.record.key);
    if (change.op == statedb::Op::put)
      take(change, history);
    else if (change.proof == statedb::Proof::history)
      remove(change.record.key);
    else
      lose(change.record.key);
  }
  if (!changed.empty()) judgeRefused(changed);
  return changed;
}

void VmRows::remove(const rt::String& name) {
  rows_.erase(name);
  refused_.erase(name);
  index_.vmDel(name);
}

void VmRows::lose(const rt::String& name) {
  const auto known = rows_.find(name);
  if (known == rows_.end()) return;
  known->second = {.valid = nullptr,
                   .problems = {},
                   .origin = known->second.origin,
                   .vm = known->second.vm,
                   .isLost = true};
  refused_.erase(name);
  index_.vmDel(name);
}

void VmRows::take(const statedb::Change& change, const rt::String& history) {
  const rt::String& name = change.record.key;
  const auto known = rows_.find(name);
  if (known != rows_.end() && !known->second.isLost && change.proof == statedb::Proof::history &&
      known->second.origin.created != change.record.created)
    remove(name);  // that was another VM
  VmRow& row = rows_[name];
  if (row.vm == 0) row.vm = ++lastVm_;
  row.origin = {history, change.record.created};
  row.isLost = false;
  judge(change.record);
}

VmRows::Judged VmRows::read(const statedb::Record& record) const {
  Judged judged{rt::make<Vm::VmConfig>(record.key), {}};
  const auto check = [this](const rt::Entity& read) {
    return problemsOf(static_cast<const Vm::VmConfig&>(read), index_, limits_);
  };
  judged.problems =
      statedb::fill(*judged.vm, record.doc,
                    {.switchAttribute = "enabled", .check = check, .defaults = model::vmDefaults});
  return judged;
}

// Whether the row may be handed over.
bool VmRows::judge(const statedb::Record& record) {
  VmRow& row = rows_.at(record.key);
  Judged judged = read(record);
  row.problems = std::move(judged.problems);
  if (!row.problems.empty()) {
    refused_[record.key] = record;
    return false;
  }
  refused_.erase(record.key);
  index_.vmIs(*judged.vm);
  row.valid = std::move(judged.vm);
  return true;
}

// In the order in which they were written.
std::vector<statedb::Record> VmRows::refused() const {
  std::vector<statedb::Record> waiting;
  waiting.reserve(refused_.size());
  for (const auto& [name, record] : refused_) waiting.push_back(record);
  std::sort(waiting.begin(), waiting.end(),
            [](const auto& a, const auto& b) { return a.revision < b.revision; });
  return waiting;
}

// Until nothing more is freed by what is accepted.
void VmRows::judgeRefused(std::set<rt::String>& changed) {
  bool accepted = true;
  while (accepted && !refused_.empty()) {
    accepted = false;
    for (const auto& record : refused()) {
      const auto before = rows_.at(record.key).problems;
      accepted = judge(record) || accepted;
      if (rows_.at(record.key).problems != before) changed.insert(record.key);
    }
    accepted = accepted || exchange(changed);
  }
}

// Accepts changes that stand in each other's way only, such as two VMs' that swap their ports.
// Tries a few rounds, and no more: a long row of VMs that all wait for one would cost a round each.
bool VmRows::exchange(std::set<rt::String>& changed) {
  std::vector<statedb::Record> group = refused();
  std::erase_if(group, [this](const auto& record) { return !rows_.at(record.key).valid; });
  for (int round = 0; group.size() > 1; ++round) {
    if (round == 8) return false;
    for (const auto& record : group) index_.vmDel(record.key);
    std::vector<statedb::Record> good;
    for (const auto& record : group) {
      const Judged judged = read(record);
      if (!judged.problems.empty()) continue;
      index_.vmIs(*judged.vm);
      good.push_back(record);
    }
    if (good.size() == group.size()) break;
    for (const auto& record : group) index_.vmIs(*rows_.at(record.key).valid);
    group = std::move(good);
  }
  if (group.size() < 2) return false;
  for (const auto& record : group) {
    judge(record);
    changed.insert(record.key);
  }
  return true;
}

const VmRow* VmRows::row(const rt::String& name) const {
  const auto found = rows_.find(name);
  return found == rows_.end() ? nullptr : &found->second;
}

}  // namespace host
