// What of the machine each VM's guest may take.
#pragma once

#include <map>
#include <optional>

#include "model/VmConfigCheck.h"
#include "model/VmLimits.h"
#include "statedb/Record.h"

namespace host {

// The rows of vmLimits. One that is refused changes nothing: what was in force before stays.
class LimitRows {
 public:
  explicit LimitRows(const model::MachineLimits& machine) : machine_(machine) {}

  // What the VM's row says now; nothing: there is none.
  void rowIs(const rt::String& vm, const std::optional<statedb::Record>& row);

  // Never null: of a VM without a row, the usual ones.
  model::VmLimits::PtrConst limits(const rt::String& vm) const;
  // Why the VM's row cannot be gone by; empty: nothing is wrong.
  rt::String problem(const rt::String& vm) const;

 private:
  struct Row {
    model::VmLimits::PtrConst limits;  // null: none was valid yet
    rt::String problem;
  };

  const model::MachineLimits machine_;
  std::map<rt::String, Row> rows_;
};

}  // namespace host
