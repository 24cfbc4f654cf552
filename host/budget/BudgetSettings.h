// What guests may have of this machine, as the daemon is told, or by itself.
#pragma once

#include "host/budget/Budget.h"

namespace host {

struct BudgetWish {
  uint32_t memory = 0;           // mebibytes for all guests; 0: nobody has said
  model::Processors processors;  // likewise; none: nobody has said
  rt::String acceleration;       // "auto", "kvm" or "tcg"
};

// Without a group.
Budget::Settings budgetOf(const BudgetWish& wish, const MachineFiles& files);

// Shows it to operators.
void show(model::DaemonStatus& status, const Budget::Settings& settings, const GuestsGroup& group);

}  // namespace host
