#include "host/database/LimitRows.h"

#include "host/base/Problems.h"
#include "model/Tables.h"
#include "model/VmFields.h"
#include "statedb/EntityDocument.h"

namespace host {

void LimitRows::rowIs(const rt::String& vm, const std::optional<statedb::Record>& row) {
  if (!row) {
    rows_.erase(vm);
    return;
  }
  const auto check = [&](const rt::Entity& read) {
    return model::fieldProblems(read, model::table::vmLimits, machine_);
  };
  Row& known = rows_[vm];
  const auto limits = rt::make<model::VmLimits>(vm);
  const auto problems = statedb::fill(*limits, row->doc, {.check = check});
  if (problems.empty())
    known = {limits, {}};
  else
    known.problem = rt::String(model::table::vmLimits) + ": " + textOf(problems);
}

model::VmLimits::PtrConst LimitRows::limits(const rt::String& vm) const {
  const auto row = rows_.find(vm);
  return row != rows_.end() && row->second.limits ? row->second.limits
                                                  : rt::make<model::VmLimits>(vm);
}

rt::String LimitRows::problem(const rt::String& vm) const {
  const auto row = rows_.find(vm);
  return row == rows_.end() ? rt::String() : row->second.problem;
}

}  // namespace host
