#include "host/VmRows.h"

#include <algorithm>

#include "statedb/EntityDocument.h"

namespace host {

std::set<rt::String> VmRows::apply(const std::vector<statedb::Change>& changes) {
  std::set<rt::String> changed;
  for (const auto& [op, record] : changes) {
    changed.insert(record.key);
    if (op == statedb::Op::del)
      remove(record.key);
    else
      judge(record);
  }
  if (!changed.empty()) judgeRefused(changed);
  return changed;
}

void VmRows::remove(const rt::String& name) {
  rows_.erase(name);
  refused_.erase(name);
  index_.vmDel(name);
}

// Whether the row may be handed over.
bool VmRows::judge(const statedb::Record& record) {
  if (const auto known = rows_.find(record.key);
      known != rows_.end() && known->second.created != record.created)
    remove(record.key);  // that was another VM
  VmRow& row = rows_[record.key];
  row.created = record.created;
  auto vm = rt::make<Vm::VmConfig>(record.key);
  const auto check = [this](const rt::Entity& read) {
    return problemsOf(static_cast<const Vm::VmConfig&>(read), index_, limits_);
  };
  row.problems = statedb::fill(*vm, record.doc, {.switchAttribute = "enabled", .check = check});
  if (!row.problems.empty()) {
    refused_[record.key] = record;
    return false;
  }
  refused_.erase(record.key);
  index_.vmIs(*vm);
  row.valid = std::move(vm);
  return true;
}

// In the order in which they were written; until nothing more is freed by what is accepted.
void VmRows::judgeRefused(std::set<rt::String>& changed) {
  bool accepted = true;
  while (accepted && !refused_.empty()) {
    accepted = false;
    std::vector<statedb::Record> waiting;
    waiting.reserve(refused_.size());
    for (const auto& [name, record] : refused_) waiting.push_back(record);
    std::sort(waiting.begin(), waiting.end(),
              [](const auto& a, const auto& b) { return a.revision < b.revision; });
    for (const auto& record : waiting) {
      const auto before = rows_.at(record.key).problems;
      accepted = judge(record) || accepted;
      if (rows_.at(record.key).problems != before) changed.insert(record.key);
    }
  }
}

const VmRow* VmRows::row(const rt::String& name) const {
  const auto found = rows_.find(name);
  return found == rows_.end() ? nullptr : &found->second;
}

}  // namespace host
