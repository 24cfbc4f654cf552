#include "ctl/view/Limits.h"

#include "model/Tables.h"
#include "model/VmFields.h"
#include "statedb/EntityDocument.h"

namespace ctl {

model::VmLimits::Ptr copyOf(const model::VmLimits& limits) {
  auto copy = rt::make<model::VmLimits>(limits.name());
  statedb::copy(limits, *copy);
  return copy;
}

bool isSame(const model::VmLimits& a, const model::VmLimits& b) {
  return statedb::documentOf(a) == statedb::documentOf(b);
}

bool areUsual(const model::VmLimits& limits) {
  return isSame(limits, *rt::make<model::VmLimits>(""));
}

void putLimits(statedb::Transaction& transaction, const rt::String& vm,
               const model::VmLimits& limits, const KnownLimits& known) {
  if (isSame(limits, known.limits)) return;
  transaction.guard(model::table::vmLimits, vm, known.revision);
  if (areUsual(limits))
    transaction.del(model::table::vmLimits, vm);
  else
    transaction.put(model::table::vmLimits, vm, statedb::documentOf(limits));
}

std::vector<rt::String> limitTexts(const model::VmLimits& limits) {
  return limitTexts(limits, *rt::make<model::VmLimits>(""));
}

std::vector<rt::String> limitTexts(const model::VmLimits& limits, const model::VmLimits& before) {
  std::vector<rt::String> texts;
  for (const model::VmField& field : model::vmFields()) {
    if (field.table != model::table::vmLimits) continue;
    const rt::String value = model::valueOf(limits, field);
    if (value != model::valueOf(before, field))
      texts.push_back(rt::String(field.name) + "=" + value);
  }
  return texts;
}

rt::String limitsMember(const model::VmLimits& limits) {
  return areUsual(limits) ? rt::String() : R"(,"limits":)" + statedb::documentOf(limits);
}

}  // namespace ctl
