// The host's own rows of each VM, judged.
#pragma once

#include <map>
#include <optional>
#include <set>

#include "model/VmConfigCheck.h"
#include "model/VmOwn.h"
#include "statedb/Record.h"

namespace host {

// The rows of model::ownTables. One that is refused changes nothing: what was in force before
// stays.
class OwnRows {
 public:
  explicit OwnRows(const model::MachineLimits& machine) : machine_(machine) {}

  // What the VM's row of that table says now; nothing: there is none.
  void rowIs(std::string_view table, const rt::String& vm,
             const std::optional<statedb::Record>& row);

  // Never null: of a VM without a row, the usual.
  model::VmLimits::PtrConst limits(const rt::String& vm) const { return own(vm).limits; }
  model::VmPolicy::PtrConst policy(const rt::String& vm) const { return own(vm).policy; }
  // All of them. Nobody is to write into these records.
  const model::VmOwn& own(const rt::String& vm) const;
  // Why the VM's rows cannot be gone by; empty: nothing is wrong.
  rt::String problem(const rt::String& vm) const;
  // How many VMs have a row: one that has none costs nothing.
  size_t size() const { return rows_.size(); }

 private:
  struct Rows {
    model::VmOwn own;  // what is in force
    std::map<std::string_view, rt::String> problems;
    std::set<std::string_view> tables;  // that have a row of it
  };

  const model::MachineLimits machine_;
  const model::VmOwn usual_;
  std::map<rt::String, Rows> rows_;
};

}  // namespace host
